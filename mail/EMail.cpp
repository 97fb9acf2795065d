#include "mail/EMail.h"

namespace oru {

namespace {

enum class Alternative { Plain, Html };

// Sets one alternative and, while the other one is still empty, hands the
// same text over to it. The hand-over is a loop rather than mutual recursion,
// so that an endless exchange (empty text) cannot exhaust the stack.
void setAlternatives(EMail &mail, const QString &text, const char *charset, Alternative first)
{
    Alternative current = first;
    for (;;) {
        if (current == Alternative::Plain) {
            mail.plainTextContent().setPlainText(text, charset);
            if (!mail.htmlTextContent().isEmpty())
                return;
            current = Alternative::Html;
        } else {
            mail.htmlTextContent().setHtmlText(text, charset);
            if (!mail.plainTextContent().isEmpty())
                return;
            current = Alternative::Plain;
        }
    }
}

} // namespace

EMail::EMail()
    : MimePart(QStringLiteral("multipart/related"))
{
    MimePart &root = *this;
    const QString contentType = QStringLiteral("Content-Type");
    root[0][contentType] = QStringLiteral("multipart/alternative");
    root[0][0][contentType] = QStringLiteral("text/plain");
    root[0][1][contentType] = QStringLiteral("text/html");
}

void EMail::setPlainText(const QString &text, const char *charset)
{
    setAlternatives(*this, text, charset, Alternative::Plain);
}

void EMail::setHtmlText(const QString &text, const char *charset)
{
    setAlternatives(*this, text, charset, Alternative::Html);
}

MimePart &EMail::plainTextContent()
{
    MimePart &root = *this;
    return root[0][0];
}

MimePart &EMail::htmlTextContent()
{
    MimePart &root = *this;
    return root[0][1];
}

QString &EMail::contactName()
{
    return headers[QStringLiteral("Contact-Name")];
}

QString &EMail::contactStreet()
{
    return headers[QStringLiteral("Contact-Street")];
}

QString &EMail::contactCity()
{
    return headers[QStringLiteral("Contact-City")];
}

QString &EMail::contactPhone()
{
    return headers[QStringLiteral("Contact-Phone")];
}

} // namespace oru
