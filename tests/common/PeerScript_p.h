#pragma once

// Parsed form of a ScriptedSmtpPeer script. Internal to the test support
// library: tests write scripts as text and never see these types.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

struct PeerStep
{
    enum Kind {
        Send,           // "S: text"      bytes = text + CRLF
        SendRaw,        // "S~ bytes"     bytes = unescaped bytes
        SendRepeated,   // "S* N text"    bytes = text + CRLF, count = N
        BigLine,        // "big-line N"   count = N
        Expect,         // "C: text"      bytes = expected line without CRLF
        ExpectAny,      // "C: *"
        ExpectOptional, // "C? text"      like Expect, but a close instead is fine
        ReadData,       // "C: <data>"
        Wait,           // "wait N"       count = milliseconds
        Close,          // "close"
        StartTls,       // "starttls"
        ExpectClose,    // "expect-close"
        Stall           // "stall"
    };

    Kind kind = Send;
    QByteArray bytes;
    qint64 count = 0;
    QString source; // the script line as written, for failure messages
};

// Turns script lines into steps. Blank lines and lines starting with '#'
// are skipped. On a malformed line returns false and names the line in
// *error (1-based, counting every entry of lines).
bool parsePeerScript(const QStringList& lines, QVector<PeerStep>* steps, QString* error);

// Decodes the escapes \r \n \t \0 \\ and \xHH. Returns false on an unknown
// or truncated escape and describes it in *error.
bool unescapePeerBytes(const QString& text, QByteArray* out, QString* error);
