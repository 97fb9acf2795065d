// Builds the e-mail message that quillet-send sends.
#ifndef QUILLET_SEND_MESSAGEBUILDER_H
#define QUILLET_SEND_MESSAGEBUILDER_H

#include "SendOptions.h"

#include <Quillet.h>

#include <QString>
#include <QStringList>

namespace send {

/// The texts of a message as the user gave them; an absent text is null.
struct MessageTexts
{
    QString text;
    bool hasText = false;
    QString html;
    bool hasHtml = false;
};

/// Reads --text, --text-file and --html-file (UTF-8; "-" is standard
/// input). CR LF line ends become line feeds. False with an error naming
/// the option when a file cannot be read.
bool readTexts(const SendOptions &options, MessageTexts *texts, QString *error);

/// Checks that every file of --attach and --inline-image is a readable
/// regular file; the error names the option and the file.
bool checkFiles(const SendOptions &options, QString *error);

/// Places the texts so that each one goes out, given the way the library
/// collapses the MIME skeleton at send time:
///  - one text: set on the plain-text node with that node's own setter, so
///    the HTML alternative stays empty and the text becomes the only text
///    part (the root itself without files);
///  - both texts with files: the two alternatives of the skeleton;
///  - both texts without files: the root becomes multipart/alternative and
///    the HTML a second root child, so the plain-text container collapses
///    into the plain text next to it.
/// withFiles tells whether attachments or inline images will follow.
/// As the wire ends a message of one text part with a line end of its own,
/// such a text loses one final line feed here (unless a blank precedes it).
void placeTexts(oru::EMail &mail, const MessageTexts &texts, bool withFiles);

/// Appends one file as a child of the root: its type from Qt's MIME
/// database, its bytes, and a disposition with its file name (non-ASCII
/// names in the RFC 2231 form). An inline part also gets the Content-ID
/// "<file name>". False when the file's bytes could not all be read.
bool attachFile(oru::EMail &mail, const QString &path, bool inlinePart, QString *error);

/// The whole message from the options: addresses, subject, texts, files.
/// False with an error naming the option on any bad input.
bool buildMessage(const SendOptions &options, oru::EMail *mail, QString *error);

} // namespace send

#endif
