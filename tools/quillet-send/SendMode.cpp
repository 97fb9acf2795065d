#include "SendMode.h"

#include "CommandLine.h"
#include "MailSender.h"
#include "MessageBuilder.h"
#include "ServerSettings.h"

#include <Quillet.h>

#include <QTextStream>

namespace send {

int runSend(const SendOptions &options)
{
    QString error;
    oru::SmtpAccess access;
    if (!resolveServerSettings(options, &access, &error))
        return usageError(error);

    if (!options.saveConfigFile.isEmpty()) {
        if (!saveSettingsFile(options.saveConfigFile, options.configGroup, access, &error)) {
            QTextStream(stderr) << "quillet-send: " << error << '\n';
            return ExitFailed;
        }
        QTextStream(stderr) << "quillet-send: settings written to " << options.saveConfigFile << '\n';
        if (!options.hasRecipients())
            return ExitOk;
    }

    if (access.host.isEmpty())
        return usageError(QStringLiteral("--server: no server given (on the command line or by --config)"));
    if (options.from.trimmed().isEmpty())
        return usageError(QStringLiteral("--from: no sender given"));
    if (!options.hasRecipients())
        return usageError(QStringLiteral("--to: no recipient given (--to, --cc or --bcc)"));

    oru::EMail mail;
    if (!buildMessage(options, &mail, &error))
        return usageError(error);
    if (!resolvePassword(&access, &error))
        return usageError(error);
    return sendCopies(access, options.cramMd5, mail, options.count, options.jobs);
}

} // namespace send
