#include "PeerSession_p.h"

#include <algorithm>
#include <limits>

namespace {

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    c |= 0x20;
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// Decodes \r \n \t \0 \\ and \xHH; false with *problem on a bad escape.
bool unescape(const QByteArray& text, QByteArray* out, QString* problem)
{
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out->append(text[i]);
            continue;
        }
        if (++i == text.size()) {
            *problem = QStringLiteral("escape at the end of the text");
            return false;
        }
        const int simple = QByteArray("rnt0\\").indexOf(text[i]);
        const int high = i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? hexDigit(text[i + 2]) : -1;
        if (simple >= 0) {
            out->append("\r\n\t\0\\"[simple]);
        } else if (text[i] != 'x') {
            *problem = QStringLiteral("unknown escape \\%1").arg(QLatin1Char(text[i]));
            return false;
        } else if (high < 0 || low < 0) {
            *problem = QStringLiteral("\\x needs two hexadecimal digits");
            return false;
        } else {
            out->append(char(high * 16 + low));
            i += 2;
        }
    }
    return true;
}

// A non-negative decimal count; false for anything else.
bool parseCount(const QString& text, qint64* value)
{
    bool ok = false;
    *value = text.trimmed().toLongLong(&ok);
    return ok && *value >= 0;
}

} // namespace

bool parsePeerScript(const QStringList& lines, QVector<PeerStep>* steps, QString* error)
{
    steps->clear();
    for (int n = 0; n < lines.size(); ++n) {
        const QString& line = lines.at(n);
        const QString word = line.trimmed();
        if (word.isEmpty() || word.startsWith(QLatin1Char('#')))
            continue;

        PeerStep step;
        step.source = line;
        QString problem;
        const QString tag = line.left(2);
        // The text after a two-character tag, less one separating space.
        const QString rest = line.mid(line.midRef(2, 1) == QLatin1String(" ") ? 3 : 2);
        const QByteArray text = rest.toLatin1();
        const bool latin1 = std::all_of(rest.begin(), rest.end(), [](QChar c) { return c.unicode() <= 0xff; });

        if (!latin1 && (tag == QLatin1String("S:") || tag == QLatin1String("S~") || tag == QLatin1String("S*")
                        || tag == QLatin1String("C:") || tag == QLatin1String("C?"))) {
            problem = QStringLiteral("text outside Latin-1");
        } else if (tag == QLatin1String("S:")) {
            step.bytes = text + "\r\n";
        } else if (tag == QLatin1String("S~")) {
            unescape(text, &step.bytes, &problem);
        } else if (tag == QLatin1String("S*")) {
            const int space = text.indexOf(' ');
            if (!parseCount(space < 0 ? rest : rest.left(space), &step.count))
                problem = QStringLiteral("S* needs a count");
            step.bytes = (space < 0 ? QByteArray() : text.mid(space + 1)) + "\r\n";
        } else if (tag == QLatin1String("C:") || tag == QLatin1String("C?")) {
            step.kind = tag == QLatin1String("C?") ? PeerStep::ExpectOptional
                : text == "*"                    ? PeerStep::ExpectAny
                : text == "<data>"               ? PeerStep::ReadData
                                                 : PeerStep::Expect;
            step.bytes = text;
        } else if (word.startsWith(QLatin1String("wait "))) {
            step.kind = PeerStep::Wait;
            if (!parseCount(word.mid(5), &step.count))
                problem = QStringLiteral("wait needs milliseconds");
        } else if (word.startsWith(QLatin1String("big-line "))) {
            step.bytes = "x";
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
        if (problem.isEmpty() && step.kind == PeerStep::Send
            && step.count > std::numeric_limits<int>::max() / qMax(1, step.bytes.size()))
            problem = QStringLiteral("too many bytes for one send");

        if (!problem.isEmpty()) {
            *error = QStringLiteral("script line %1 \"%2\": %3").arg(n + 1).arg(line, problem);
            return false;
        }
        steps->append(step);
    }
    return true;
}
