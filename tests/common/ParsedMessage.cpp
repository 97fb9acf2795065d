#include "ParsedMessage.h"

#include "TestSupportPaths_p.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryFile>

namespace {

const int kKillMs = 2000;

// A JSON string, or a null QString for JSON null or a missing key.
QString optionalString(const QJsonObject& object, const QString& key)
{
    const QJsonValue value = object.value(key);
    return value.isString() ? value.toString() : QString();
}

ParsedMessage failed(const QString& error)
{
    ParsedMessage message;
    message.error = error;
    return message;
}

ParsedMessage fromJson(const QJsonObject& object)
{
    ParsedMessage message;
    message.ok = true;
    message.subject = optionalString(object, QStringLiteral("subject"));
    message.from = optionalString(object, QStringLiteral("from"));
    message.to = optionalString(object, QStringLiteral("to"));
    message.cc = optionalString(object, QStringLiteral("cc"));
    const QJsonArray headers = object.value(QStringLiteral("headers")).toArray();
    for (const QJsonValue& header : headers) {
        const QJsonArray pair = header.toArray();
        message.headers.append(qMakePair(pair.at(0).toString(), pair.at(1).toString()));
    }
    const QJsonArray defects = object.value(QStringLiteral("defects")).toArray();
    for (const QJsonValue& defect : defects)
        message.defects.append(defect.toString());
    const QJsonArray parts = object.value(QStringLiteral("parts")).toArray();
    for (const QJsonValue& value : parts) {
        const QJsonObject part = value.toObject();
        ParsedPart parsed;
        parsed.contentType = optionalString(part, QStringLiteral("content_type"));
        parsed.filename = optionalString(part, QStringLiteral("filename"));
        parsed.disposition = optionalString(part, QStringLiteral("disposition"));
        parsed.charset = optionalString(part, QStringLiteral("charset"));
        parsed.payload = QByteArray::fromBase64(part.value(QStringLiteral("payload_base64")).toString().toLatin1());
        parsed.text = optionalString(part, QStringLiteral("text"));
        message.parts.append(parsed);
    }
    return message;
}

} // namespace

QString ParsedMessage::header(const QString& name) const
{
    for (const auto& header : headers) {
        if (header.first.compare(name, Qt::CaseInsensitive) == 0)
            return header.second;
    }
    return QString();
}

ParsedMessage parseWithPython(const QByteArray& raw, int timeoutMs)
{
    QTemporaryFile file;
    if (!file.open() || file.write(raw) != raw.size() || !file.flush())
        return failed(QStringLiteral("cannot write the message to a temporary file"));

    QProcess python;
    python.start(testSupportPython(), {testSupportScript(QStringLiteral("parse_message.py")), file.fileName()});
    python.closeWriteChannel();
    if (!python.waitForStarted(timeoutMs))
        return failed(QStringLiteral("cannot run %1: %2").arg(testSupportPython(), python.errorString()));
    if (!python.waitForFinished(timeoutMs)) {
        python.kill();
        python.waitForFinished(kKillMs);
        return failed(QStringLiteral("parse_message.py did not finish within %1 ms").arg(timeoutMs));
    }
    const QByteArray output = python.readAllStandardOutput();
    if (python.exitStatus() != QProcess::NormalExit || python.exitCode() != 0) {
        return failed(QStringLiteral("parse_message.py failed: %1")
                          .arg(QString::fromLocal8Bit(python.readAllStandardError())));
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(output, &error);
    if (!document.isObject())
        return failed(QStringLiteral("parse_message.py printed no JSON object: %1").arg(error.errorString()));
    return fromJson(document.object());
}
