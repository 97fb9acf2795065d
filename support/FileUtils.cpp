#include "support/FileUtils.h"

#include <QIODevice>
#include <QVarLengthArray>

namespace oru {

namespace {

const qint64 ChunkSize = 64 * 1024;

// Writes the given bytes and returns how many the target took; fewer than
// size when the target refused the rest.
qint64 writeAll(QIODevice &target, const char *data, qint64 size)
{
    qint64 total = 0;
    while (total < size) {
        const qint64 written = target.write(data + total, size - total);
        if (written <= 0)
            break;
        total += written;
    }
    return total;
}

} // namespace

qint64 FileUtils::copy(QIODevice &source, QIODevice &target, qint64 maxBytes, int waitMs)
{
    if (!source.isReadable() || !target.isWritable() || maxBytes < 1)
        return 0;

    QVarLengthArray<char, 1> buffer(int(qMin(ChunkSize, maxBytes)));
    qint64 copied = 0;
    while (copied < maxBytes) {
        const qint64 wanted = qMin<qint64>(buffer.size(), maxBytes - copied);
        const qint64 got = source.read(buffer.data(), wanted);
        if (got < 0)
            break;
        if (got == 0) {
            // A random-access device has reached its end; a sequential one may
            // still receive more within the wait.
            if (!source.isSequential() || !source.waitForReadyRead(waitMs))
                break;
            continue;
        }
        const qint64 written = writeAll(target, buffer.data(), got);
        copied += written;
        if (written < got)
            break;
    }
    return copied;
}

} // namespace oru
