#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

//! One leaf of a message as Python's email package decoded it.
struct ParsedPart
{
    QString contentType;  //!< e.g. "text/plain", lower case
    QString filename;     //!< null when the part names none
    QString disposition;  //!< "attachment", "inline" or null
    QString charset;      //!< null when none is given
    QByteArray payload;   //!< the body after transfer decoding
    QString text;         //!< text parts: the body decoded by its charset; else null
};

//! A message as Python's email package (policy "default") sees it.
struct ParsedMessage
{
    bool ok = false;      //!< false: error says why nothing was parsed
    QString error;
    QString subject;      //!< decoded header texts; null when absent
    QString from;
    QString to;
    QString cc;
    QList<QPair<QString, QString>> headers; //!< raw name/value pairs in order
    QStringList defects;  //!< the parser's complaints, over the whole tree
    QList<ParsedPart> parts; //!< every leaf part in tree order

    //! The raw value of the first header with that name (any case); null
    //! when absent.
    QString header(const QString& name) const;
};

//! Runs parse_message.py on raw message bytes with Debian's python3 and
//! returns what it decoded. Waits at most timeoutMs.
ParsedMessage parseWithPython(const QByteArray& raw, int timeoutMs = 20000);
