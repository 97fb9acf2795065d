#ifndef QUILLET_TESTS_FAKEPROGRAM_H
#define QUILLET_TESTS_FAKEPROGRAM_H

// Stand-ins for mail programs: shell scripts that record their working
// directory and argument vector, NUL-separated, into a file and exit with
// the status in FAKE_STATUS (0 when unset).

#include <QFile>
#include <QStringList>

namespace fake {

inline bool writeFile(const QString &path, const QByteArray &content, bool executable = true)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        return false;
    file.close();
    return file.setPermissions(executable ? QFile::permissions(path) | QFile::ExeOwner | QFile::ExeGroup
                                          : QFile::ReadOwner | QFile::WriteOwner);
}

// The record appears at once, complete, when the program is done with it.
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
    if (!file.open(QIODevice::ReadOnly))
        return fields;
    QList<QByteArray> raw = file.readAll().split('\0');
    raw.removeLast(); // after the final NUL
    for (const QByteArray &field : raw)
        fields << QString::fromUtf8(field);
    return fields;
}

} // namespace fake

#endif
