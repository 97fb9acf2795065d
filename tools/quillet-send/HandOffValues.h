// Makes a message's strings safe for the templates of each mail program.
#ifndef QUILLET_SEND_HANDOFFVALUES_H
#define QUILLET_SEND_HANDOFFVALUES_H

#include <QString>
#include <QStringList>

namespace send {

/// The mail programs quillet-send can hand a message to.
enum class HandOffKind { AppleScript, Thunderbird, Outlook, Url };

/// The kind's name as --app spells it.
QString handOffKindName(HandOffKind kind);

/// What a hand-off carries: recipients as separate addresses, subject,
/// body text and absolute attachment paths.
struct HandOffMessage
{
    QStringList recipients;
    QString subject;
    QString body;
    QStringList attachments;
    QString bodyOption = QStringLiteral("--text");  ///< where the body came from, for errors
};

/// The message rewritten so that the kind's template carries every text
/// intact, or false with an error naming the option whose text it cannot
/// carry.
///
/// The library fills templates with QString::arg value after value and
/// escapes nothing, so a "%" followed by a digit in any value but the last
/// one of a template would be filled by a later value. Therefore:
///  - url and outlook: "%", "&" and "#" (and for outlook '"') are
///    percent-encoded; the codes used are all two-digit numbers above the
///    templates' own, which the filling leaves alone;
///  - thunderbird: values stay as they are; an apostrophe anywhere or a
///    "%digit" before the last value is refused;
///  - applescript: backslashes and double quotes are escaped for
///    AppleScript, apostrophes for the shell; a "%digit" in the subject is
///    refused.
/// Attachment paths of the "file:///" templates lose their leading slash.
/// thunderbird gets every attachment as one list in its attachment field;
/// url and outlook carry one attachment only and refuse more.
bool prepareHandOff(HandOffKind kind, const HandOffMessage &message, HandOffMessage *prepared,
                    QString *error);

} // namespace send

#endif
