#include "PeerScript_p.h"

namespace {

int hexValue(QChar c)
{
    const ushort u = c.unicode();
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    return -1;
}

// The text after a two-character tag such as "S:", with one separating
// space dropped; every further space belongs to the text.
QString afterTag(const QString& line)
{
    QString rest = line.mid(2);
    if (rest.startsWith(QLatin1Char(' ')))
        rest.remove(0, 1);
    return rest;
}

// Parses a non-negative decimal count; false for anything else.
bool parseCount(const QString& text, qint64* value)
{
    bool ok = false;
    const qint64 v = text.trimmed().toLongLong(&ok);
    if (!ok || v < 0)
        return false;
    *value = v;
    return true;
}

bool latin1Only(const QString& text)
{
    for (const QChar c : text) {
        if (c.unicode() > 0xff)
            return false;
    }
    return true;
}

} // namespace

bool unescapePeerBytes(const QString& text, QByteArray* out, QString* error)
{
    QByteArray result;
    result.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c.unicode() > 0xff) {
            *error = QStringLiteral("character U+%1 is not a byte; use \\xHH")
                         .arg(c.unicode(), 4, 16, QLatin1Char('0'));
            return false;
        }
        if (c != QLatin1Char('\\')) {
            result.append(char(c.unicode()));
            continue;
        }
        if (++i >= text.size()) {
            *error = QStringLiteral("escape at the end of the text");
            return false;
        }
        switch (text.at(i).unicode()) {
        case 'r': result.append('\r'); break;
        case 'n': result.append('\n'); break;
        case 't': result.append('\t'); break;
        case '0': result.append('\0'); break;
        case '\\': result.append('\\'); break;
        case 'x': {
            const int hi = i + 1 < text.size() ? hexValue(text.at(i + 1)) : -1;
            const int lo = i + 2 < text.size() ? hexValue(text.at(i + 2)) : -1;
            if (hi < 0 || lo < 0) {
                *error = QStringLiteral("\\x needs two hexadecimal digits");
                return false;
            }
            result.append(char(hi * 16 + lo));
            i += 2;
            break;
        }
        default:
            *error = QStringLiteral("unknown escape \\%1").arg(text.at(i));
            return false;
        }
    }
    *out = result;
    return true;
}

bool parsePeerScript(const QStringList& lines, QVector<PeerStep>* steps, QString* error)
{
    QVector<PeerStep> parsed;
    parsed.reserve(lines.size());
    for (int n = 0; n < lines.size(); ++n) {
        const QString& line = lines.at(n);
        const QString word = line.trimmed();
        if (word.isEmpty() || word.startsWith(QLatin1Char('#')))
            continue;

        PeerStep step;
        step.source = line;
        QString problem;
        const QString tag = line.left(2);

        if (tag == QLatin1String("S:") || tag == QLatin1String("C:") || tag == QLatin1String("C?")) {
            const QString text = afterTag(line);
            if (!latin1Only(text)) {
                problem = QStringLiteral("text outside Latin-1");
            } else if (tag == QLatin1String("S:")) {
                step.kind = PeerStep::Send;
                step.bytes = text.toLatin1() + "\r\n";
            } else if (tag == QLatin1String("C?")) {
                step.kind = PeerStep::ExpectOptional;
                step.bytes = text.toLatin1();
            } else if (text == QLatin1String("*")) {
                step.kind = PeerStep::ExpectAny;
            } else if (text == QLatin1String("<data>")) {
                step.kind = PeerStep::ReadData;
            } else {
                step.kind = PeerStep::Expect;
                step.bytes = text.toLatin1();
            }
        } else if (tag == QLatin1String("S~")) {
            step.kind = PeerStep::SendRaw;
            unescapePeerBytes(afterTag(line), &step.bytes, &problem);
        } else if (tag == QLatin1String("S*")) {
            step.kind = PeerStep::SendRepeated;
            const QString rest = afterTag(line);
            const int space = rest.indexOf(QLatin1Char(' '));
            const QString text = space < 0 ? QString() : rest.mid(space + 1);
            if (!parseCount(space < 0 ? rest : rest.left(space), &step.count))
                problem = QStringLiteral("S* needs a count");
            else if (!latin1Only(text))
                problem = QStringLiteral("text outside Latin-1");
            else
                step.bytes = text.toLatin1() + "\r\n";
        } else if (word.startsWith(QLatin1String("wait "))) {
            step.kind = PeerStep::Wait;
            if (!parseCount(word.mid(5), &step.count))
                problem = QStringLiteral("wait needs milliseconds");
        } else if (word.startsWith(QLatin1String("big-line "))) {
            step.kind = PeerStep::BigLine;
            if (!parseCount(word.mid(9), &step.count))
                problem = QStringLiteral("big-line needs a byte count");
        } else if (word == QLatin1String("close")) {
            step.kind = PeerStep::Close;
        } else if (word == QLatin1String("starttls")) {
            step.kind = PeerStep::StartTls;
        } else if (word == QLatin1String("expect-close")) {
            step.kind = PeerStep::ExpectClose;
        } else if (word == QLatin1String("stall")) {
            step.kind = PeerStep::Stall;
        } else {
            problem = QStringLiteral("unknown step");
        }

        if (!problem.isEmpty()) {
            *error = QStringLiteral("script line %1 \"%2\": %3").arg(n + 1).arg(line, problem);
            return false;
        }
        parsed.append(step);
    }
    *steps = parsed;
    return true;
}
