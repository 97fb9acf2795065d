#include "support/Log.h"

#include "support/Mutex.h"
#include "support/MutexLocker.h"

#include <QAtomicInt>
#include <QDateTime>
#include <QIODevice>
#include <QTextStream>

#include <cstring>

namespace oru {

namespace {

struct LogState
{
    QAtomicInt level;
    Mutex mutex;
    QIODevice* device = nullptr;
    QTextStream stream;
};

Q_GLOBAL_STATIC(LogState, gLog)

bool isIdentifierChar(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
        || c == '_';
}

bool isOperatorSymbolChar(char c)
{
    return c != '\0' && std::strchr("<>=!+-*/%^&|~[],", c) != nullptr;
}

bool tokenIsOperator(const char* s, int end)
{
    // True when the token that ends right before `end` is the keyword "operator".
    return end >= 8 && std::strncmp(s + end - 8, "operator", 8) == 0
        && (end == 8 || !isIdentifierChar(s[end - 9]));
}

// The stream for a line of this level, or null when nothing is to be written.
// Must be called with the log's mutex held.
QTextStream* stream(LogState& state, int level)
{
    if (level < 1 || level > state.level.loadRelaxed() || !state.device)
        return nullptr;
    return &state.stream;
}

// Writes the head of a line.
QTextStream& pre(QTextStream& s, int level)
{
    s << QDateTime::currentDateTime().toString(Qt::ISODateWithMs) << ' ' << level << ' ';
    return s;
}

} // namespace

int Log::level()
{
    return gLog()->level.loadRelaxed();
}

void Log::setLevel(int level)
{
    gLog()->level.storeRelaxed(level);
}

void Log::setDevice(QIODevice* device)
{
    LogState& state = *gLog();
    MutexLocker lock(state.mutex);
    if (state.device)
        state.stream.flush();
    state.device = device;
    state.stream.setDevice(device);
}

QIODevice* Log::device()
{
    LogState& state = *gLog();
    MutexLocker lock(state.mutex);
    return state.device;
}

bool Log::isEnabled(int level)
{
    LogState& state = *gLog();
    MutexLocker lock(state.mutex);
    return stream(state, level) != nullptr;
}

void Log::write(int level, const char* signature, const QString& message)
{
    if (level < 1 || level > Log::level())
        return;
    const QString tag = functionTag(signature);
    LogState& state = *gLog();
    MutexLocker lock(state.mutex);
    if (QTextStream* s = stream(state, level)) {
        pre(*s, level) << '[' << tag << "] " << message << '\n';
        s->flush();
    }
}

QString Log::functionTag(const char* signature)
{
    const char* s = signature ? signature : "";
    const int n = int(std::strlen(s));
    int depth = 0;      // nesting of template brackets
    int nameStart = 0;  // first character of the qualified name
    int i = 0;
    for (; i < n; ++i) {
        const char c = s[i];
        if (c == 'o' && tokenIsOperator(s, i + 8) && (i == 0 || !isIdentifierChar(s[i - 1]))
            && (i + 8 == n || !isIdentifierChar(s[i + 8]))) {
            // An operator's symbol is part of its name: skip "()" and
            // brackets or signs, so that they are not read as nesting.
            i += 8;
            if (i + 1 < n && s[i] == '(' && s[i + 1] == ')') {
                i += 1;
                continue;
            }
            while (i < n && isOperatorSymbolChar(s[i]))
                ++i;
            --i;
            continue;
        }
        if (c == '(' && depth == 0 && std::strncmp(s + i, "(anonymous namespace)", 21) == 0) {
            i += 20;
            continue;
        }
        if (c == '<') {
            ++depth;
        } else if (c == '>') {
            if (depth > 0)
                --depth;
        } else if (c == '(' && depth == 0) {
            break;
        } else if (c == ' ' && depth == 0 && !tokenIsOperator(s, i)) {
            // A space before the name belongs to the return type; the one
            // inside "operator QString" belongs to the name.
            nameStart = i + 1;
        }
    }
    QString tag = QString::fromLatin1(s + nameStart, i - nameStart).trimmed();
    tag += QLatin1String("()");
    return tag;
}

} // namespace oru
