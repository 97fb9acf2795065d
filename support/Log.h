#ifndef ORU_SUPPORT_LOG_H
#define ORU_SUPPORT_LOG_H

#include "quillet_export.h"

#include <QString>

QT_BEGIN_NAMESPACE
class QIODevice;
QT_END_NAMESPACE

namespace oru {

/// The process-wide levelled log.
///
/// The host chooses the level and the device. A line of level L is written
/// when 1 <= L <= level(); the default level 0 and a null device write
/// nothing. Each line reads: a head (local time with milliseconds and the
/// line's level), "[", the function tag, "] ", the message and a line feed.
/// Lines from several threads never interleave.
class QUILLET_EXPORT Log
{
public:
    static int level();
    static void setLevel(int level);
    /// The device is not owned and must stay open and alive until it is
    /// replaced; null stops writing. Safe to call while other threads log.
    static void setDevice(QIODevice* device);
    static QIODevice* device();

    /// Whether a line of this level would be written now.
    static bool isEnabled(int level);
    /// Writes one line for the function whose compiler signature is given
    /// (pass Q_FUNC_INFO).
    static void write(int level, const char* signature, const QString& message);

    /// The qualified function name of a compiler signature, followed by "()":
    /// "virtual void oru::A::run(int, QTime*)" gives "oru::A::run()".
    static QString functionTag(const char* signature);

private:
    Log() = delete;
};

} // namespace oru

#endif
