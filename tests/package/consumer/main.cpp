// Builds a small message through the umbrella header only, the way a host
// application does, and prints a few facts about it.
#include <Quillet.h>

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);

    oru::EMail mail;
    mail.subject = QStringLiteral("Consumer check");
    mail.from = oru::MailAddress(QStringLiteral("Ann <ann@example.org>"));
    mail.to = oru::MailAddressList(QStringLiteral("bob@example.org, carl@example.org"));
    mail.setPlainText(QStringLiteral("hello"), "utf-8");

    out << "from=" << mail.from.toString() << '\n'
        << "to=" << mail.to.toStringList(true).join(QLatin1Char('|')) << '\n'
        << "plain=" << mail.plainTextContent()["Content-Type"] << '\n'
        << "name=" << encodeQuotedPrintable(QStringLiteral("J. Doe"), 0) << '\n';
    return mail.to.toStringList(false).size() == 2 ? 0 : 1;
}
