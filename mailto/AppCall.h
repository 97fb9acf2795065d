#ifndef QUILLET_MAILTO_APPCALL_H
#define QUILLET_MAILTO_APPCALL_H

#include "quillet_export.h"

#include <QString>
#include <QStringList>

#include <utility>
#include <vector>

namespace oru {

/// How one mail program is called: an ordered sequence of (template, values)
/// pairs. Each pair becomes exactly one argument, the template with its
/// placeholders "%1", "%2", ... replaced by the values in order. A pair with
/// no values is a fixed argument.
using ParamSet = std::vector<std::pair<QString, QStringList>>;

/// One prepared call of one mail program: how it is called, where its
/// executable lies and the parameter set that carries the message.
///
/// Nothing handed to a program is escaped or encoded: the caller keeps the
/// values safe for the call kind it chose.
class QUILLET_EXPORT AppCall
{
public:
    /// The call kinds. Every 32-bit value is a legal value; unknown kinds fail.
    enum ECall : int {
        eUrl = 0,         ///< join the arguments with blanks and open them as a URL
        eShellExec = 1,   ///< start path + program detached with the arguments
        eDragDrop = 2,    ///< not available; always fails
        eMAPI = 3,        ///< not available; always fails
        eAppleScript = 4  ///< compose a message in the system's Mail via osascript
    };

    /// A call of kind eUrl with empty strings, no pending search and no parameters.
    AppCall() = default;
    AppCall(ECall type, const QString &program, const QString &path,
            bool searchPending, const ParamSet &params);

    /// The directory that holds `program`, ending in "/".
    ///
    /// When `searchPending` is set, the first call clears it and searches once,
    /// depth-first and at most three levels deep, below the directories named by
    /// the environment variables "ProgramFiles" (a trailing " (x86)" cut off)
    /// and "ProgramFiles(x86)", in that order. Only a found program changes
    /// `path`; otherwise, and when no search is pending, `path` is returned as it
    /// stands. Writes this record although it is const.
    QString getPath() const;

    /// The filled arguments, one per pair of `params`, each filled with
    /// QString::arg value after value. A value that brings in a placeholder of
    /// its own is filled by the following values; a template without
    /// placeholders drops its values.
    QStringList fillParams() const;

    /// The filled arguments joined with single blanks, each between double
    /// quotes when `quote` is true. A blank goes before an argument only when
    /// the text built so far is not empty, so leading empty arguments leave no
    /// blanks while a trailing empty one leaves a trailing blank.
    QString mergeParams(bool quote) const;

    /// Carries out the call by `type`; true when the hand-off was started.
    /// eShellExec fails without starting anything when `program` is set and
    /// getPath() is empty; with an empty `program` the command is `path` alone.
    /// The started program's exit status is never looked at.
    bool apply() const;

    /// Runs "osascript" through the shell, synchronously, with a script that
    /// opens a new outgoing message in Mail from the raw values of `params`
    /// (templates are ignored): recipients from pair 1, the subject from pair 2
    /// joined with blanks, the content from pair 3 joined with line feeds and
    /// attachment paths from pair 4. True exactly when the command exits with 0.
    bool applyAppleScript() const;

    /// Does nothing and returns false; apply() starts eShellExec calls itself.
    bool applyShellExec() const;
    /// Does nothing and returns false.
    bool applyDrapDrop() const;
    /// Does nothing and returns false.
    bool applyMAPI() const;

    ECall type = eUrl;
    /// File name of the executable (name filter: wildcards act as wildcards).
    QString program;
    /// Directory of the executable, ending in "/"; also the working directory.
    mutable QString path;
    /// When true, the next getPath() searches once and clears it.
    mutable bool searchPending = false;
    ParamSet params;
};

} // namespace oru

#endif
