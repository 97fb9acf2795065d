#include "CommandLine.h"

#include <QCommandLineParser>
#include <QTextStream>

#include <cstdio>

namespace send {

namespace {

struct OptionInfo
{
    const char *name;
    const char *valueName;  // nullptr: a flag
    const char *description;
    const char *example;    // nullptr: none
};

struct OptionGroup
{
    const char *title;
    const OptionInfo *options;
    int size;
};

const OptionInfo kServerOptions[] = {
    {"server", "HOST", "SMTP server to send through.", "--server smtp.example.org"},
    {"port", "PORT", "Server port (1-65535); default 465 with --ssl, else 25.", "--port 587"},
    {"ssl", nullptr, "Use TLS from the first byte (SMTPS).", "--ssl --port 465"},
    {"starttls", nullptr,
     "Upgrade a plain connection with STARTTLS when the server offers it. A server that does not "
     "offer it gets the message unencrypted.",
     "--starttls --port 587"},
    {"user", "NAME",
     "Log in as NAME with AUTH LOGIN or PLAIN. The password is taken from the environment "
     "variable QUILLET_PASSWORD or asked for without echo on a terminal; it is never read from "
     "the command line.",
     "QUILLET_PASSWORD=secret quillet-send --user joe ..."},
    {"cram-md5", nullptr, "Also allow AUTH CRAM-MD5, which is then preferred when the server offers it.",
     "--user joe --cram-md5"},
    {"config", "FILE",
     "Read the server settings from FILE: XML when the name ends in .xml, else an INI settings "
     "file. Options on the command line override what the file holds.",
     "--config ~/.config/quillet-send.ini"},
    {"config-group", "NAME",
     "Group (INI) or element (XML) holding the settings in --config and --save-config files; "
     "default \"smtp\".",
     "--config work.xml --config-group office"},
    {"save-config", "FILE",
     "Write the server settings to FILE (INI, or XML when the name ends in .xml), never the "
     "password. Nothing is sent unless recipients are given as well.",
     "--server smtp.example.org --starttls --user joe --save-config work.ini"},
};

const OptionInfo kMessageOptions[] = {
    {"from", "ADDRESS", "Author of the message and envelope sender.", "--from \"Jane Doe <jane@example.org>\""},
    {"to", "ADDRESSES",
     "Recipients. Repeatable; each value may list several addresses separated by commas or "
     "semicolons (a comma inside a quoted name stays in the name).",
     "--to \"\\\"Doe, Ann\\\" <ann@example.org>, bob@example.org\""},
    {"cc", "ADDRESSES", "Copy recipients, like --to.", "--cc carl@example.org"},
    {"bcc", "ADDRESSES", "Blind copy recipients: they get the message but appear in no header.",
     "--bcc archive@example.org"},
    {"subject", "TEXT", "Subject line; line breaks are dropped.", "--subject \"Monthly report\""},
    {"text", "TEXT", "The plain text.", "--text \"Hello Ann, the report is attached.\""},
    {"text-file", "FILE", "Read the plain text (UTF-8) from FILE; \"-\" reads standard input.",
     "--text-file body.txt"},
    {"html-file", "FILE", "Read the HTML text (UTF-8) from FILE; \"-\" reads standard input.",
     "--html-file body.html"},
    {"attach", "FILE",
     "Attach FILE under its own name. Repeatable. Its type comes from Qt's MIME database; text "
     "types travel with CR LF line ends as MIME requires. Each file goes out as one base64 line, "
     "which servers that enforce SMTP's line limit of 1000 characters refuse for files over "
     "about 750 bytes.",
     "--attach report.pdf --attach data.csv"},
    {"inline-image", "FILE",
     "Add FILE as an inline image that the HTML shows with <img src=\"cid:NAME\">, NAME being the "
     "file name. Repeatable.",
     "--html-file body.html --inline-image logo.png"},
};

const OptionInfo kDeliveryOptions[] = {
    {"count", "N", "Send N copies of the message (default 1).", "--count 100"},
    {"jobs", "P",
     "Spread the copies over P connections running at once (default 1; never more than N). "
     "With more than one message a progress line is shown when standard error is a terminal.",
     "--count 100 --jobs 4"},
};

const OptionInfo kHandOffOptions[] = {
    {"compose", nullptr,
     "Hand the message (recipients of --to, subject, text and the paths of --attach and "
     "--inline-image) to your mail program instead of sending it. Server options are not used.",
     "--compose --to ann@example.org --subject Hi --text Hello"},
    {"app", "KIND",
     "Mail program: \"url\" (a mailto: URL opened by the desktop), \"thunderbird\" or \"outlook\" "
     "(started with their own command-line switches; the program is searched for below the "
     "directories named by ProgramFiles and ProgramFiles(x86) when those are set, else on the "
     "PATH), \"applescript\" (Mail on macOS), or \"auto\" (default: every one that fits, in "
     "that order, until one starts; thunderbird and outlook only when found). thunderbird "
     "receives every attachment, url and outlook take one. A text that a program's argument "
     "syntax cannot carry (an apostrophe for thunderbird, for instance) is refused, not cut.",
     "--compose --app thunderbird"},
    {"program", "FILE", "Executable for thunderbird or outlook: a name to search for, or a path.",
     "--compose --app thunderbird --program /opt/thunderbird/thunderbird"},
};

const OptionInfo kGeneralOptions[] = {
    {"help", nullptr, "Show this help.", nullptr},
    {"version", nullptr, "Show the version.", nullptr},
};

#define QUILLET_SEND_GROUP(title, array) {title, array, int(sizeof(array) / sizeof(array[0]))}
const OptionGroup kGroups[] = {
    QUILLET_SEND_GROUP("Server", kServerOptions),
    QUILLET_SEND_GROUP("Message", kMessageOptions),
    QUILLET_SEND_GROUP("Delivery", kDeliveryOptions),
    QUILLET_SEND_GROUP("Hand-off", kHandOffOptions),
    QUILLET_SEND_GROUP("General", kGeneralOptions),
};
#undef QUILLET_SEND_GROUP

const char kTextRules[] =
    "How the texts go out:\n"
    "  --text (or --text-file) alone      one text/plain part\n"
    "  --html-file alone                  one text/html part\n"
    "  text and HTML, no files            multipart/alternative holding both; the\n"
    "                                     reader's program shows the one it prefers\n"
    "  with --attach or --inline-image    the text part(s) first, then the files, in\n"
    "                                     multipart/mixed (multipart/related when there\n"
    "                                     are inline images)\n"
    "  files without any text             an empty text/plain part, then the files\n"
    "  Texts are sent as UTF-8; CR LF line ends are read as line feeds. A message of\n"
    "  one text part always ends with a line end, so a text without one gets it.\n";

const char kExitStatus[] =
    "Exit status:\n"
    "  0  every message was accepted (--compose: the mail program was started)\n"
    "  1  a message was refused or could not be delivered (--compose: nothing could be\n"
    "     started); every outcome is printed as \"job J: CODE TEXT\"\n"
    "  2  bad command line, unreadable file or address, missing password\n";

const char kExamples[] =
    "Examples:\n"
    "  QUILLET_PASSWORD=secret quillet-send --server smtp.example.org --starttls --user joe \\\n"
    "      --from joe@example.org --to ann@example.org --subject Report \\\n"
    "      --text-file body.txt --html-file body.html --attach report.pdf\n"
    "  echo \"Build finished\" | quillet-send --config work.ini --from ci@example.org \\\n"
    "      --to team@example.org --subject \"CI\" --text-file -\n"
    "  quillet-send --compose --app thunderbird --to ann@example.org --subject Hi --text Hello\n";

QString optionLabel(const OptionInfo &info)
{
    QString label = QStringLiteral("--") + QLatin1String(info.name);
    if (info.valueName)
        label += QLatin1Char(' ') + QLatin1String(info.valueName);
    return label;
}

// Word-wraps text to width columns, every line indented by indent blanks.
void appendWrapped(QString &out, const QString &text, int indent, int width)
{
    const QString pad(indent, QLatin1Char(' '));
    int column = 0;
    const QStringList words = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &word : words) {
        if (column > 0 && column + 1 + word.size() > width) {
            out += QLatin1Char('\n');
            column = 0;
        }
        if (column == 0) {
            out += pad;
            column = indent;
        } else {
            out += QLatin1Char(' ');
            ++column;
        }
        out += word;
        column += word.size();
    }
    out += QLatin1Char('\n');
}

// A whole number in [minimum, maximum], or an error naming the option.
bool readNumber(const QCommandLineParser &parser, const char *name, int minimum, int maximum,
                int *value, QString *error)
{
    const QString text = parser.value(QLatin1String(name));
    bool ok = false;
    const int number = text.trimmed().toInt(&ok);
    if (!ok || number < minimum || number > maximum) {
        *error = QStringLiteral("--%1: \"%2\" is not a whole number from %3 to %4")
                     .arg(QLatin1String(name), text)
                     .arg(minimum)
                     .arg(maximum);
        return false;
    }
    *value = number;
    return true;
}

} // namespace

ParseResult parseCommandLine(const QStringList &arguments)
{
    ParseResult result;
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    for (const OptionGroup &group : kGroups) {
        for (int i = 0; i < group.size; ++i) {
            const OptionInfo &info = group.options[i];
            QStringList names{QLatin1String(info.name)};
            if (qstrcmp(info.name, "help") == 0)
                names << QStringLiteral("h");
            parser.addOption(info.valueName
                                 ? QCommandLineOption(names, QString(), QLatin1String(info.valueName))
                                 : QCommandLineOption(names));
        }
    }

    if (!parser.parse(arguments)) {
        result.action = ParseResult::Error;
        result.error = parser.errorText();
        return result;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        result.action = ParseResult::ShowHelp;
        return result;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        result.action = ParseResult::ShowVersion;
        return result;
    }
    if (!parser.positionalArguments().isEmpty()) {
        result.action = ParseResult::Error;
        result.error = QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first());
        return result;
    }

    SendOptions &o = result.options;
    QString &error = result.error;
    auto fail = [&result]() {
        result.action = ParseResult::Error;
        return result;
    };
    auto isSet = [&parser](const char *name) { return parser.isSet(QLatin1String(name)); };
    // Single-valued options keep their last value, as most tools do.
    auto last = [&parser](const char *name) {
        const QStringList values = parser.values(QLatin1String(name));
        return values.isEmpty() ? QString() : values.last();
    };

    o.serverGiven = isSet("server");
    o.server = last("server").trimmed();
    if (o.serverGiven && o.server.isEmpty()) {
        error = QStringLiteral("--server: the host name is empty");
        return fail();
    }
    o.portGiven = isSet("port");
    if (o.portGiven && !readNumber(parser, "port", 1, 65535, &o.port, &error))
        return fail();
    o.ssl = isSet("ssl");
    o.starttls = isSet("starttls");
    if (o.ssl && o.starttls) {
        error = QStringLiteral("--ssl and --starttls exclude each other");
        return fail();
    }
    o.userGiven = isSet("user");
    o.user = last("user");
    o.cramMd5 = isSet("cram-md5");
    o.configFile = last("config");
    if (isSet("config-group"))
        o.configGroup = last("config-group").trimmed();
    if (o.configGroup.isEmpty()) {
        error = QStringLiteral("--config-group: the name is empty");
        return fail();
    }
    o.saveConfigFile = last("save-config");

    o.from = last("from");
    o.to = parser.values(QStringLiteral("to"));
    o.cc = parser.values(QStringLiteral("cc"));
    o.bcc = parser.values(QStringLiteral("bcc"));
    o.subject = last("subject");
    o.textGiven = isSet("text");
    o.text = last("text");
    o.textFile = last("text-file");
    if (o.textGiven && isSet("text-file")) {
        error = QStringLiteral("--text and --text-file exclude each other");
        return fail();
    }
    o.htmlFile = last("html-file");
    if (o.textFile == QLatin1String("-") && o.htmlFile == QLatin1String("-")) {
        error = QStringLiteral("--html-file: standard input is already read by --text-file");
        return fail();
    }
    o.attachments = parser.values(QStringLiteral("attach"));
    o.inlineImages = parser.values(QStringLiteral("inline-image"));

    if (isSet("count") && !readNumber(parser, "count", 1, 1000000, &o.count, &error))
        return fail();
    if (isSet("jobs") && !readNumber(parser, "jobs", 1, 1000, &o.jobs, &error))
        return fail();

    o.compose = isSet("compose");
    if (isSet("app"))
        o.app = last("app").trimmed().toLower();
    static const QStringList kinds{QStringLiteral("auto"), QStringLiteral("url"), QStringLiteral("thunderbird"),
                                   QStringLiteral("outlook"), QStringLiteral("applescript")};
    if (!kinds.contains(o.app)) {
        error = QStringLiteral("--app: unknown kind \"%1\" (use %2)").arg(last("app"), kinds.join(QStringLiteral(", ")));
        return fail();
    }
    o.program = last("program");
    return result;
}

QString helpText()
{
    QString out;
    out += QStringLiteral(
        "Usage: quillet-send --server HOST --from ADDRESS --to ADDRESSES [options]\n"
        "       quillet-send --compose --to ADDRESSES [options]\n\n"
        "Sends an e-mail message through an SMTP server with the Quillet library, or hands\n"
        "it to your mail program. Every outcome the server reports is printed.\n");
    for (const OptionGroup &group : kGroups) {
        out += QLatin1Char('\n') + QLatin1String(group.title) + QStringLiteral(":\n");
        for (int i = 0; i < group.size; ++i) {
            const OptionInfo &info = group.options[i];
            out += QStringLiteral("  ") + optionLabel(info) + QLatin1Char('\n');
            appendWrapped(out, QLatin1String(info.description), 6, 80);
            if (info.example)
                out += QStringLiteral("      Example: ") + QLatin1String(info.example) + QLatin1Char('\n');
        }
    }
    out += QLatin1Char('\n') + QLatin1String(kTextRules);
    out += QLatin1Char('\n') + QLatin1String(kExitStatus);
    out += QLatin1Char('\n') + QLatin1String(kExamples);
    return out;
}

QString usageText()
{
    return QStringLiteral(
        "Usage: quillet-send --server HOST --from ADDRESS --to ADDRESSES [options]\n"
        "       quillet-send --compose --to ADDRESSES [options]\n"
        "Try 'quillet-send --help' for every option.\n");
}

int usageError(const QString &error)
{
    QTextStream err(stderr);
    err << "quillet-send: " << error << '\n' << usageText();
    err.flush();
    return ExitUsage;
}

} // namespace send
