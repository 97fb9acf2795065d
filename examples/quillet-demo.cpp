// Builds a small message with both text alternatives and a file attachment,
// then prints its MIME tree and its root headers.
#include <Quillet.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

namespace {

void printNode(QTextStream &out, const oru::MimePart &node, int depth, const QString &label)
{
    const QString indent(depth * 2, QLatin1Char(' '));
    out << indent << label << ": " << node.content.size() << " content bytes, "
        << node.parts.size() << " children\n";
    for (auto it = node.headers.cbegin(); it != node.headers.cend(); ++it)
        out << indent << "  | " << it.key() << ": " << it.value() << '\n';
    for (int i = 0; i < node.parts.size(); ++i)
        printNode(out, node.parts.at(i), depth + 1, QStringLiteral("child %1").arg(i));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("report.csv"));
    QFile file(path);
    if (!dir.isValid() || !file.open(QIODevice::WriteOnly)) {
        QTextStream(stderr) << "quillet-demo: cannot create a temporary file\n";
        return 1;
    }
    file.write("month,orders\nJanuary,120\nFebruary,98\n");
    file.close();

    oru::EMail mail;
    mail.from = QStringLiteral("J\u00F6rg Example <joerg@example.org>");
    mail.to = QStringLiteral("Jane Doe <jane@example.org>, bob@example.org");
    mail.subject = QStringLiteral("Monthly report: \u20AC figures");
    mail.setPlainText(QStringLiteral("Hello Jane,\nthe report is attached.\n"), "utf-8");
    mail.setHtmlText(QStringLiteral("<p>Hello Jane,</p><p>the report is <b>attached</b>.</p>"), "utf-8");

    oru::MimePart &attachment = mail.attach(QStringLiteral("text/csv"));
    attachment.setFile(path);
    attachment.setContentDisposition(QStringLiteral("attachment"), QStringLiteral("report.csv"));

    out << "MIME tree\n";
    printNode(out, mail, 0, QStringLiteral("root"));

    // The addressing headers are added by the sender at send time; here they
    // are shown in the form it writes them, followed by the root's own map.
    out << "\nRoot headers\n";
    out << "From: " << mail.from.toQuotedPrintable() << '\n';
    out << "To: " << mail.to.joinQuotedPrintable(QStringLiteral(",")) << '\n';
    out << "Subject: " << encodeQuotedPrintable(mail.subject, 0) << '\n';
    for (auto it = mail.headers.cbegin(); it != mail.headers.cend(); ++it)
        out << it.key() << ": " << it.value() << '\n';
    return 0;
}
