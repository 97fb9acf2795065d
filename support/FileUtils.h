// Copying between I/O devices.
#ifndef QUILLET_SUPPORT_FILEUTILS_H
#define QUILLET_SUPPORT_FILEUTILS_H

#include <QtGlobal>

QT_BEGIN_NAMESPACE
class QIODevice;
QT_END_NAMESPACE

namespace oru {

/// Helpers for files and other devices.
class FileUtils
{
public:
    /// Copies what source yields into target, at most maxBytes bytes, and
    /// returns the number of bytes written to target. Random-access sources are
    /// read to their end. A sequential source (socket, process) is read until
    /// it reports no more data after waiting up to waitMs milliseconds for it.
    /// A source that is not open for reading, a target that is not open for
    /// writing or maxBytes below 1 copy nothing. A failing write ends the copy.
    static qint64 copy(QIODevice &source, QIODevice &target, qint64 maxBytes, int waitMs);
};

} // namespace oru

#endif
