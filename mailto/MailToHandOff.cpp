// Handing a message to a mail program: filling an entry's parameter set with
// the message and carrying out the call by its kind.

#include "mailto/MailTo.h"

#include <QDesktopServices>
#include <QProcess>
#include <QUrl>

#include <cstdlib>
#include <iterator>

namespace oru {

namespace {

// Which part of the message goes into a value position.
enum Slot { Recipient, Subject, Body, FirstAttachment };

struct SlotWrite
{
    int pair;
    int value;
    Slot slot;
};

const SlotWrite kThunderbirdWrites[] = {
    {1, 0, Recipient}, {1, 1, Subject}, {1, 2, Body}, {1, 3, FirstAttachment}};
const SlotWrite kOutlookWrites[] = {
    {1, 0, Recipient}, {1, 1, Subject}, {1, 2, Body}, {2, 0, FirstAttachment}};
const SlotWrite kMailUrlSwitchWrites[] = {
    {0, 0, Recipient}, {0, 1, Subject}, {0, 2, Body}, {1, 0, FirstAttachment}};
const SlotWrite kMailtoUrlWrites[] = {
    {0, 0, Recipient}, {0, 1, Subject}, {0, 2, Body}, {0, 3, FirstAttachment}};

struct Shape
{
    const SlotWrite *begin = nullptr;
    const SlotWrite *end = nullptr;
};

template <std::size_t N>
Shape shapeOf(const SlotWrite (&writes)[N])
{
    return Shape{std::begin(writes), std::end(writes)};
}

// The value positions that MailTo::call fills for the programs that take
// single values; empty for the raw-field programs and unknown keys.
Shape writesFor(MailTo::EApp app)
{
    switch (app) {
    case MailTo::eThunderbird:
        return shapeOf(kThunderbirdWrites);
    case MailTo::eOutlook:
        return shapeOf(kOutlookWrites);
    case MailTo::eMailUrlSwitch:
    case MailTo::eMailUrlSwitchAlt1:
    case MailTo::eMailUrlSwitchAlt2:
        return shapeOf(kMailUrlSwitchWrites);
    case MailTo::eMailtoUrl:
    case MailTo::eMailtoUrlAlt:
        return shapeOf(kMailtoUrlWrites);
    default:
        return Shape{};
    }
}

bool isRawFields(MailTo::EApp app)
{
    return app == MailTo::eRawFields || app == MailTo::eRawFieldsAlt;
}

bool hasPositions(const ParamSet &params, const Shape &shape)
{
    for (const SlotWrite *w = shape.begin; w != shape.end; ++w) {
        if (std::size_t(w->pair) >= params.size() || w->value >= params[w->pair].second.size())
            return false;
    }
    return true;
}

// QString::arg that stays quiet where the text cannot hold a placeholder; the
// result is the same, arg would only warn about the missing argument.
QString fillOne(const QString &text, const QString &value)
{
    if (!text.contains(QLatin1Char('%')))
        return text;
    return text.arg(value);
}

// The values of one pair of a parameter set, or none when the pair is missing.
QStringList valuesAt(const ParamSet &params, std::size_t pair)
{
    return pair < params.size() ? params[pair].second : QStringList();
}

QString buildAppleScript(const ParamSet &params)
{
    const QStringList recipients = valuesAt(params, 0);
    const QString subject = valuesAt(params, 1).join(QLatin1Char(' '));
    const QString content = valuesAt(params, 2).join(QLatin1Char('\n'));
    const QStringList attachments = valuesAt(params, 3);

    QString script = fillOne(fillOne(QStringLiteral(
        "osascript -e 'tell app \"Mail\"' -e '  activate'"
        " -e '  set newMessage to make new outgoing message' -e '  tell newMessage'"
        " -e '    set the subject to \"%1\"'"
        " -e '    set the content to \"%2\" & return & return & return'"), subject), content);

    for (const QString &recipient : recipients) {
        script += fillOne(QStringLiteral(
            " -e '    make new recipient at end of to recipients with properties {address:\"%1\"}'"),
            recipient);
    }
    if (!attachments.isEmpty()) {
        script += QLatin1String(" -e '    tell content'");
        for (const QString &attachment : attachments) {
            script += fillOne(QStringLiteral(
                " -e '      make new attachment with properties {file name:\"%1\"}"
                " at after the last word of the last paragraph'"), attachment);
        }
        script += QLatin1String(" -e '    end tell'");
    }
    script += QLatin1String(" -e '    set visible to true' -e '  end tell' -e 'end tell'");
    return script;
}

} // namespace

AppCall &MailTo::call(EApp app, const QString &subject, const QString &body,
                      const QStringList &attachments, const QString &to)
{
    AppCall &entry = (*this)[app];
    const QString first = attachments.isEmpty() ? QString() : attachments.first();

    if (isRawFields(app)) {
        if (entry.params.size() < 4)
            entry.params = defaultParamSet(app);
        entry.params[0].second = QStringList{to};
        entry.params[1].second = QStringList{subject};
        entry.params[2].second = QStringList{body};
        entry.params[3].second = attachments;
        return entry;
    }

    const Shape shape = writesFor(app);
    if (shape.begin == shape.end)
        return entry;
    if (!hasPositions(entry.params, shape))
        entry.params = defaultParamSet(app);
    for (const SlotWrite *w = shape.begin; w != shape.end; ++w) {
        QString &value = entry.params[w->pair].second[w->value];
        switch (w->slot) {
        case Recipient: value = to; break;
        case Subject: value = subject; break;
        case Body: value = body; break;
        case FirstAttachment: value = first; break;
        }
    }
    return entry;
}

bool MailTo::apply(const QString &subject, const QString &body,
                   const QStringList &attachments, const QString &to)
{
    for (auto &entry : *this) {
        if (call(entry.first, subject, body, attachments, to).apply())
            return true;
    }
    return false;
}

QStringList AppCall::fillParams() const
{
    QStringList filled;
    filled.reserve(int(params.size()));
    for (const auto &pair : params) {
        QString text = pair.first;
        for (const QString &value : pair.second)
            text = fillOne(text, value);
        filled.append(text);
    }
    return filled;
}

QString AppCall::mergeParams(bool quote) const
{
    const QStringList filled = fillParams();
    QString merged;
    for (const QString &argument : filled) {
        if (!merged.isEmpty())
            merged += QLatin1Char(' ');
        if (quote) {
            merged += QLatin1Char('"');
            merged += argument;
            merged += QLatin1Char('"');
        } else {
            merged += argument;
        }
    }
    return merged;
}

bool AppCall::apply() const
{
    switch (type) {
    case eUrl:
        return QDesktopServices::openUrl(QUrl(mergeParams(false), QUrl::TolerantMode));
    case eShellExec:
        if (!program.isEmpty() && getPath().isEmpty())
            return false;
        // A searched path ends in "/"; one set by the caller carries its own.
        return QProcess::startDetached(path + program, fillParams(), path);
    case eDragDrop:
        return applyDrapDrop();
    case eMAPI:
        return applyMAPI();
    case eAppleScript:
        return applyAppleScript();
    }
    return false;
}

bool AppCall::applyAppleScript() const
{
    const QByteArray command = buildAppleScript(params).toUtf8();
    return std::system(command.constData()) == 0;
}

bool AppCall::applyShellExec() const
{
    return false;
}

bool AppCall::applyDrapDrop() const
{
    return false;
}

bool AppCall::applyMAPI() const
{
    return false;
}

} // namespace oru
