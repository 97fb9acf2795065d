// Finding a mail program's directory below the program-files directories.

#include "mailto/AppCall.h"
#include "mailto/FileSearch_p.h"

#include <QByteArray>

namespace oru {

namespace {

const int kSearchDepth = 3;

// The text that a 32-bit process sees at the end of "ProgramFiles"; cutting
// it off gives the native program directory, so that both get searched.
const QLatin1String kX86Suffix(" (x86)");

QString environmentText(const char *name)
{
    // Environment values are taken as ASCII, up to the first NUL.
    const QByteArray value = qgetenv(name);
    return QString::fromLatin1(value.constData());
}

QStringList searchRoots()
{
    QStringList roots;
    QString native = environmentText("ProgramFiles");
    if (native.endsWith(kX86Suffix, Qt::CaseSensitive))
        native.chop(kX86Suffix.size());
    if (!native.isEmpty())
        roots.append(native);
    const QString x86 = environmentText("ProgramFiles(x86)");
    if (!x86.isEmpty())
        roots.append(x86);
    return roots;
}

} // namespace

bool findFile(const QString &name, QDir &dir, int depth)
{
    if (!dir.entryList(QStringList{name}, QDir::Files | QDir::Executable, QDir::NoSort).isEmpty())
        return true;
    if (depth < 1)
        return false;

    const QStringList subdirs = dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QString &sub : subdirs) {
        // A directory that cannot be entered is not noticed: the nested search
        // runs where dir stands and cdUp() then leaves it one level too high.
        dir.cd(sub);
        if (findFile(name, dir, depth - 1))
            return true;
        dir.cdUp();
    }
    return false;
}

QString AppCall::getPath() const
{
    if (!searchPending)
        return path;
    searchPending = false;

    const QStringList roots = searchRoots();
    for (const QString &root : roots) {
        QDir dir(root);
        if (findFile(program, dir, kSearchDepth)) {
            path = dir.absolutePath() + QLatin1Char('/');
            break;
        }
    }
    return path;
}

} // namespace oru
