#ifndef QUILLET_MAILTO_FILESEARCH_P_H
#define QUILLET_MAILTO_FILESEARCH_P_H

// Not installed: the directory walk behind AppCall::getPath().

#include <QDir>
#include <QString>

namespace oru {

// True when an executable file matching the name filter `name` lies in `dir`
// or, depth-first, in a subdirectory at most `depth` levels below it. On
// success `dir` is left in the directory that holds the file; on failure it
// is back where it started (unless a listed subdirectory could not be
// entered, in which case the walk goes on from the wrong place).
bool findFile(const QString &name, QDir &dir, int depth);

} // namespace oru

#endif
