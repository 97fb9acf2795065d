#ifndef QUILLET_TESTS_FAKEPROGRAM_H
#define QUILLET_TESTS_FAKEPROGRAM_H

// Stand-ins for mail programs: shell scripts that record their working
// directory and argument vector, NUL-separated, into a file and exit with
// the status in FAKE_STATUS (0 when unset).

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>

namespace fake {

inline bool writeFile(const QString &path, const QByteArray &content, bool executable)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        return false;
    file.close();
    QFile::Permissions perms = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
    if (executable)
        perms |= QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    return file.setPermissions(perms);
}

// A program that records into `record`: first its working directory, then
// each argument. The record appears at once, complete, when it is done.
inline bool writeRecorder(const QString &path, const QString &record)
{
    const QByteArray rec = record.toUtf8();
    const QByteArray script =
        "#!/bin/sh\n"
        "{ printf '%s\\0' \"$(pwd -P)\"; for a in \"$@\"; do printf '%s\\0' \"$a\"; done; } > '"
        + rec + ".part' && mv '" + rec + ".part' '" + rec + "'\n"
        "exit ${FAKE_STATUS:-0}\n";
    return writeFile(path, script, true);
}

// The recorded fields: working directory first, then the arguments.
inline QStringList readRecord(const QString &record)
{
    QFile file(record);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QList<QByteArray> raw = file.readAll().split('\0');
    if (!raw.isEmpty() && raw.last().isEmpty())
        raw.removeLast();
    QStringList fields;
    for (const QByteArray &field : raw)
        fields << QString::fromUtf8(field);
    return fields;
}

} // namespace fake

#endif
