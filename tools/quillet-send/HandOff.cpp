#include "HandOff.h"

#include "AddressInput.h"
#include "CommandLine.h"
#include "HandOffValues.h"
#include "MessageBuilder.h"

#include <Quillet.h>

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTextStream>

namespace send {

namespace {

using App = oru::MailTo::EApp;

struct Candidate
{
    HandOffKind kind;
    App app;
};

QString defaultProgram(HandOffKind kind)
{
#ifdef Q_OS_WIN
    return kind == HandOffKind::Thunderbird ? QStringLiteral("thunderbird.exe") : QStringLiteral("OUTLOOK.EXE");
#else
    return kind == HandOffKind::Thunderbird ? QStringLiteral("thunderbird") : QStringLiteral("outlook");
#endif
}

bool hasProgramRoots()
{
    return !qEnvironmentVariableIsEmpty("ProgramFiles") || !qEnvironmentVariableIsEmpty("ProgramFiles(x86)");
}

// A command-line call: the executable searched for below the program roots
// when the environment names any, else on the PATH; a --program with a
// directory is taken as it is.
oru::AppCall commandLineCall(HandOffKind kind, App app, const QString &programOption)
{
    oru::AppCall call(oru::AppCall::eShellExec, defaultProgram(kind), QString(), false,
                      oru::MailTo::defaultParamSet(app));
    if (!programOption.isEmpty()) {
        const QFileInfo info(programOption);
        if (programOption.contains(QLatin1Char('/')) || programOption.contains(QDir::separator())) {
            call.program = info.fileName();
            call.path = info.absolutePath() + QLatin1Char('/');
            return call;
        }
        call.program = programOption;
    }
    call.searchPending = hasProgramRoots();
    if (call.getPath().isEmpty()) {
        const QString found = QStandardPaths::findExecutable(call.program);
        if (!found.isEmpty())
            call.path = QFileInfo(found).absolutePath() + QLatin1Char('/');
    }
    return call;
}

QString shellQuoted(const QString &argument)
{
    if (!argument.isEmpty() && !argument.contains(QRegularExpression(QStringLiteral("[\\s\"'\\\\]"))))
        return argument;
    QString quoted = argument;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

QString describeStart(const oru::AppCall &call)
{
    switch (call.type) {
    case oru::AppCall::eUrl:
        return QStringLiteral("opened ") + call.mergeParams(false);
    case oru::AppCall::eAppleScript:
        return QStringLiteral("ran osascript to compose the message in Mail");
    default: {
        QStringList words{shellQuoted(call.path + call.program)};
        for (const QString &argument : call.fillParams())
            words << shellQuoted(argument);
        return QStringLiteral("started ") + words.join(QLatin1Char(' '));
    }
    }
}

QList<Candidate> candidates(const QString &app)
{
    const Candidate appleScript{HandOffKind::AppleScript, oru::MailTo::eRawFields};
    const Candidate thunderbird{HandOffKind::Thunderbird, oru::MailTo::eThunderbird};
    const Candidate outlook{HandOffKind::Outlook, oru::MailTo::eOutlook};
    const Candidate url{HandOffKind::Url, oru::MailTo::eMailtoUrl};
    if (app == QLatin1String("applescript"))
        return {appleScript};
    if (app == QLatin1String("thunderbird"))
        return {thunderbird};
    if (app == QLatin1String("outlook"))
        return {outlook};
    if (app == QLatin1String("url"))
        return {url};
#ifdef Q_OS_MACOS
    return {appleScript, thunderbird, outlook, url};
#else
    return {thunderbird, outlook, url};
#endif
}

bool readHandOffMessage(const SendOptions &options, HandOffMessage *message, QString *error)
{
    if (!options.cc.isEmpty() || !options.bcc.isEmpty()) {
        *error = QStringLiteral("%1: a hand-off carries only --to recipients")
                     .arg(options.cc.isEmpty() ? QStringLiteral("--bcc") : QStringLiteral("--cc"));
        return false;
    }
    QList<oru::MailAddress> to;
    if (!readAddresses(options.to, QStringLiteral("--to"), &to, error))
        return false;
    for (const oru::MailAddress &address : qAsConst(to))
        message->recipients << address.address;

    MessageTexts texts;
    if (!readTexts(options, &texts, error) || !checkFiles(options, error))
        return false;
    message->subject = options.subject;
    message->subject.remove(QLatin1Char('\n'));
    message->body = texts.hasText || !texts.hasHtml ? texts.text : texts.html;
    message->bodyOption = options.textGiven ? QStringLiteral("--text")
                          : texts.hasText   ? QStringLiteral("--text-file")
                                            : QStringLiteral("--html-file");
    for (const QString &path : options.inlineImages + options.attachments)
        message->attachments << QDir::toNativeSeparators(QFileInfo(path).absoluteFilePath());
    return true;
}

} // namespace

bool handOffWantsGui(const SendOptions &options)
{
    if (!options.compose || (options.app != QLatin1String("url") && options.app != QLatin1String("auto")))
        return false;
#if defined(Q_OS_WIN) || defined(Q_OS_MACOS)
    return true;
#else
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
#endif
}

int runHandOff(const SendOptions &options)
{
    HandOffMessage message;
    QString error;
    if (!readHandOffMessage(options, &message, &error))
        return usageError(error);

    QTextStream out(stdout);
    QTextStream err(stderr);
    const bool chosen = options.app != QLatin1String("auto");
    oru::MailTo mailTo;
    for (const Candidate &candidate : candidates(options.app)) {
        const QString name = handOffKindName(candidate.kind);
        HandOffMessage prepared;
        if (!prepareHandOff(candidate.kind, message, &prepared, &error)) {
            if (chosen)
                return usageError(error);
            err << "quillet-send: skipping " << name << ": " << error << '\n';
            continue;
        }

        oru::AppCall setup;
        switch (candidate.kind) {
        case HandOffKind::AppleScript:
            setup = oru::AppCall(oru::AppCall::eAppleScript, QString(), QString(), false,
                                 oru::MailTo::defaultParamSet(candidate.app));
            break;
        case HandOffKind::Url:
            if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
                err << "quillet-send: " << name << ": no desktop session to open a mailto: URL\n";
                continue;
            }
            setup = oru::AppCall(oru::AppCall::eUrl, QString(), QString(), false,
                                 oru::MailTo::defaultParamSet(candidate.app));
            break;
        case HandOffKind::Thunderbird:
        case HandOffKind::Outlook:
            setup = commandLineCall(candidate.kind, candidate.app, options.program);
            if (setup.path.isEmpty()) {
                err << "quillet-send: " << name << ": program \"" << setup.program << "\" not found\n";
                continue;
            }
            break;
        }
        mailTo[candidate.app] = setup;

        oru::AppCall &call = mailTo.call(candidate.app, prepared.subject, prepared.body, prepared.attachments,
                                         prepared.recipients.join(QLatin1Char(',')));
        // The AppleScript call makes one recipient per value.
        if (candidate.kind == HandOffKind::AppleScript)
            call.params.at(0).second = prepared.recipients;
        err.flush();
        if (call.apply()) {
            out << describeStart(call) << '\n';
            return ExitOk;
        }
        err << "quillet-send: " << name << ": could not be started\n";
    }
    err << "quillet-send: nothing could be started\n";
    return ExitFailed;
}

} // namespace send
