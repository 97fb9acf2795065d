#include "ParsedMessage.h"

#include "TestSupportPaths_p.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryFile>

namespace {

// A JSON string, or a null QString for JSON null or a missing key.
QString text(const QJsonObject& object, const char* key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? value.toString() : QString();
}

ParsedMessage failed(const QString& error)
{
    ParsedMessage message;
    message.error = error;
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
    if (!python.waitForFinished(timeoutMs)) {
        python.kill();
        python.waitForFinished(2000);
        return failed(QStringLiteral("parse_message.py did not run within %1 ms: %2").arg(timeoutMs).arg(python.errorString()));
    }
    if (python.exitStatus() != QProcess::NormalExit || python.exitCode() != 0)
        return failed(QStringLiteral("parse_message.py failed: %1").arg(QString::fromLocal8Bit(python.readAllStandardError())));
    const QJsonObject object = QJsonDocument::fromJson(python.readAllStandardOutput()).object();
    if (object.isEmpty())
        return failed(QStringLiteral("parse_message.py printed no JSON object"));

    ParsedMessage message;
    message.ok = true;
    message.subject = text(object, "subject");
    message.from = text(object, "from");
    message.to = text(object, "to");
    message.cc = text(object, "cc");
    for (const QJsonValue& header : object.value(QStringLiteral("headers")).toArray())
        message.headers.append(qMakePair(header[0].toString(), header[1].toString()));
    for (const QJsonValue& defect : object.value(QStringLiteral("defects")).toArray())
        message.defects.append(defect.toString());
    for (const QJsonValue& value : object.value(QStringLiteral("parts")).toArray()) {
        const QJsonObject part = value.toObject();
        message.parts.append({text(part, "content_type"), text(part, "filename"), text(part, "disposition"),
                              text(part, "charset"), QByteArray::fromBase64(text(part, "payload_base64").toLatin1()),
                              text(part, "text")});
    }
    return message;
}
