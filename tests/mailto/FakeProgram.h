#ifndef QUILLET_TESTS_FAKEPROGRAM_H
#define QUILLET_TESTS_FAKEPROGRAM_H

// Stand-in mail programs: shell scripts that record their working directory
// and arguments, each ended by a NUL, and exit with $FAKE_STATUS (default 0).

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

namespace fake {

// Writes a file and its folder; executable unless told otherwise.
inline bool writeFile(const QString &path, const QByteArray &content, bool executable = true)
{
    QFile file(path);
    if (!QDir().mkpath(QFileInfo(path).path()) || !file.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || file.write(content) != content.size())
        return false;
    file.close();
    return file.setPermissions(executable ? QFile::permissions(path) | QFile::ExeOwner
                                          : QFile::ReadOwner | QFile::WriteOwner);
}

// The record appears complete, by a rename, once the program is done.
inline bool writeRecorder(const QString &path, const QString &record)
{
    const QByteArray rec = record.toUtf8();
    return writeFile(path, "#!/bin/sh\n{ printf '%s\\0' \"$(pwd -P)\"; for a in \"$@\"; do printf '%s\\0' \"$a\"; done; } > '"
                               + rec + ".part' && mv '" + rec + ".part' '" + rec + "'\nexit ${FAKE_STATUS:-0}\n");
}

// The recorded fields, working directory first; empty when nothing ran.
inline QStringList readRecord(const QString &record)
{
    QFile file(record);
    QStringList fields;
    const QList<QByteArray> raw = file.open(QIODevice::ReadOnly) ? file.readAll().split('\0') : QList<QByteArray>();
    for (int i = 0; i + 1 < raw.size(); ++i) // nothing follows the last NUL
        fields << QString::fromUtf8(raw.at(i));
    return fields;
}

} // namespace fake

#endif
