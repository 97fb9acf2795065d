#include "HandOffValues.h"

#include <QRegularExpression>

namespace send {

namespace {

// Percent-encodes the characters of `special` (and always "%" itself).
QString percentEncode(const QString &value, const QString &special)
{
    QString out;
    out.reserve(value.size() + value.size() / 4);
    for (const QChar c : value) {
        if (c == QLatin1Char('%') || special.contains(c))
            out += QStringLiteral("%%1").arg(c.unicode(), 2, 16, QLatin1Char('0')).toUpper();
        else
            out += c;
    }
    return out;
}

// Escapes a value for a double-quoted AppleScript string that itself stands
// inside a single-quoted shell word.
QString appleScriptEscape(const QString &value)
{
    QString out;
    out.reserve(value.size() + 8);
    for (const QChar c : value) {
        if (c == QLatin1Char('\\'))
            out += QStringLiteral("\\\\");
        else if (c == QLatin1Char('"'))
            out += QStringLiteral("\\\"");
        else if (c == QLatin1Char('\''))
            out += QStringLiteral("'\\''");
        else
            out += c;
    }
    return out;
}

bool hasPlaceholder(const QString &value)
{
    static const QRegularExpression placeholder(QStringLiteral("%L?[0-9]"));
    return value.contains(placeholder);
}

QString withoutLeadingSlash(const QString &path)
{
#ifdef Q_OS_WIN
    return path;
#else
    return path.startsWith(QLatin1Char('/')) ? path.mid(1) : path;
#endif
}

QString joinedRecipients(const QStringList &recipients)
{
    return recipients.join(QLatin1Char(','));
}

bool refuse(QString *error, const QString &option, HandOffKind kind, const QString &what)
{
    *error = QStringLiteral("%1: %2 cannot carry %3").arg(option, handOffKindName(kind), what);
    return false;
}

} // namespace

QString handOffKindName(HandOffKind kind)
{
    switch (kind) {
    case HandOffKind::AppleScript:
        return QStringLiteral("applescript");
    case HandOffKind::Thunderbird:
        return QStringLiteral("thunderbird");
    case HandOffKind::Outlook:
        return QStringLiteral("outlook");
    case HandOffKind::Url:
        return QStringLiteral("url");
    }
    return QString();
}

bool prepareHandOff(HandOffKind kind, const HandOffMessage &message, HandOffMessage *prepared,
                    QString *error)
{
    HandOffMessage out = message;
    switch (kind) {
    case HandOffKind::Url:
    case HandOffKind::Outlook: {
        if (message.attachments.size() > 1)
            return refuse(error, QStringLiteral("--attach"), kind, QStringLiteral("more than one attachment"));
        const QString special = kind == HandOffKind::Url ? QStringLiteral("&#") : QStringLiteral("&#\"");
        for (QString &recipient : out.recipients)
            recipient = percentEncode(recipient, special);
        out.subject = percentEncode(message.subject, special);
        out.body = percentEncode(message.body, special);
        for (QString &path : out.attachments) {
            if (kind == HandOffKind::Outlook && path.contains(QLatin1Char('"')))
                return refuse(error, QStringLiteral("--attach"), kind, QStringLiteral("a '\"' in a path"));
            if (kind == HandOffKind::Url)
                path = percentEncode(withoutLeadingSlash(path), special);
        }
        break;
    }
    case HandOffKind::Thunderbird: {
        const QString apostrophe = QStringLiteral("an apostrophe");
        const QString placeholder = QStringLiteral("\"%\" followed by a digit");
        if (joinedRecipients(message.recipients).contains(QLatin1Char('\'')))
            return refuse(error, QStringLiteral("--to"), kind, apostrophe);
        if (hasPlaceholder(joinedRecipients(message.recipients)))
            return refuse(error, QStringLiteral("--to"), kind, placeholder);
        if (message.subject.contains(QLatin1Char('\'')))
            return refuse(error, QStringLiteral("--subject"), kind, apostrophe);
        if (hasPlaceholder(message.subject))
            return refuse(error, QStringLiteral("--subject"), kind, placeholder);
        if (message.body.contains(QLatin1Char('\'')))
            return refuse(error, message.bodyOption, kind, apostrophe);
        if (hasPlaceholder(message.body))
            return refuse(error, message.bodyOption, kind, placeholder);
        // The compose string has one attachment field, which takes a comma
        // separated list of file URLs.
        QStringList urls;
        for (const QString &path : message.attachments) {
            if (path.contains(QLatin1Char('\'')))
                return refuse(error, QStringLiteral("--attach"), kind, apostrophe);
            if (message.attachments.size() > 1 && path.contains(QLatin1Char(',')))
                return refuse(error, QStringLiteral("--attach"), kind, QStringLiteral("a comma in one of several paths"));
            urls << withoutLeadingSlash(path);
        }
        out.attachments.clear();
        if (!urls.isEmpty())
            out.attachments << urls.join(QStringLiteral(",file:///"));
        break;
    }
    case HandOffKind::AppleScript:
        if (hasPlaceholder(message.subject))
            return refuse(error, QStringLiteral("--subject"), kind, QStringLiteral("\"%\" followed by a digit"));
        for (QString &recipient : out.recipients)
            recipient = appleScriptEscape(recipient);
        out.subject = appleScriptEscape(message.subject);
        out.body = appleScriptEscape(message.body);
        for (QString &path : out.attachments)
            path = appleScriptEscape(path);
        break;
    }
    *prepared = out;
    return true;
}

} // namespace send
