// quillet-send: sends an e-mail message through an SMTP server with the
// Quillet library, or hands it to the user's mail program.
#include "CommandLine.h"
#include "HandOff.h"
#include "SendMode.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QStringList>
#include <QTextStream>

#include <memory>

int main(int argc, char **argv)
{
    QStringList arguments;
    arguments.reserve(argc);
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);

    const send::ParseResult parsed = send::parseCommandLine(arguments);
    switch (parsed.action) {
    case send::ParseResult::Error:
        return send::usageError(parsed.error);
    case send::ParseResult::ShowHelp:
        QTextStream(stdout) << send::helpText();
        return send::ExitOk;
    case send::ParseResult::ShowVersion:
        QTextStream(stdout) << "quillet-send " << QUILLET_SEND_VERSION << '\n';
        return send::ExitOk;
    case send::ParseResult::Run:
        break;
    }

    // The library's worker threads only make blocking socket calls and never
    // run an event loop. A GLib event dispatcher on them would add two
    // wake-up system calls to every command written; the plain one adds none.
    // Not for a hand-off, whose mail program would inherit the setting.
    if (!parsed.options.compose && qEnvironmentVariableIsEmpty("QT_NO_THREADED_GLIB"))
        qputenv("QT_NO_THREADED_GLIB", "1");

    // Opening a mailto: URL needs a GUI application; everything else runs
    // without a display.
    std::unique_ptr<QCoreApplication> application;
    if (send::handOffWantsGui(parsed.options))
        application.reset(new QGuiApplication(argc, argv));
    else
        application.reset(new QCoreApplication(argc, argv));
    QCoreApplication::setApplicationName(QStringLiteral("quillet-send"));

    return parsed.options.compose ? send::runHandOff(parsed.options) : send::runSend(parsed.options);
}
