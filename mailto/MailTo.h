#ifndef QUILLET_MAILTO_MAILTO_H
#define QUILLET_MAILTO_MAILTO_H

#include "quillet_export.h"
#include "mailto/AppCall.h"

#include <QString>
#include <QStringList>

#include <map>

namespace oru {

/// The known mail programs, by the argument syntax their parameter templates
/// carry. Values outside 0..8 are legal keys with an empty parameter set.
struct QUILLET_EXPORT MailApps
{
    enum EApp : int {
        eRawFields = 0,          ///< raw values for the AppleScript call
        eRawFieldsAlt = 1,       ///< same as eRawFields
        eThunderbird = 2,        ///< "-compose" and one compose string
        eOutlook = 3,            ///< "/c ipm.note", "/m" message, "/a" attachment
        eMailUrlSwitch = 4,      ///< "/mailurl:" URL and "/attach:" argument
        eMailUrlSwitchAlt1 = 5,  ///< same as eMailUrlSwitch
        eMailUrlSwitchAlt2 = 6,  ///< same as eMailUrlSwitch
        eMailtoUrl = 7,          ///< one mailto URL
        eMailtoUrlAlt = 8        ///< same as eMailtoUrl
    };
};

/// The mail programs a host knows, as an ordered map from EApp to AppCall
/// that the host fills with the map's own operations. Hand-off tries the
/// entries in ascending key order (keys compare as signed integers).
///
/// The library holds no program names, call kinds or search settings: the
/// host chooses them per entry. Values reach the programs unescaped.
class QUILLET_EXPORT MailTo : public MailApps, public std::map<MailApps::EApp, AppCall>
{
public:
    /// A new parameter set for `app`, every value an empty string; empty for
    /// values outside 0..8. Only eRawFields and eRawFieldsAlt carry all
    /// attachments, every other set has room for the first one only.
    static ParamSet defaultParamSet(EApp app);

    /// Writes the message into the entry of `app` and returns it; starts
    /// nothing. A missing entry is created as a default AppCall. An entry whose
    /// parameter set lacks the positions of its program's shape first gets
    /// defaultParamSet(app). Keys outside 0..8 get nothing written. Attachments
    /// after the first are dropped except for eRawFields and eRawFieldsAlt.
    /// The filled values stay in the entry.
    AppCall &call(EApp app, const QString &subject, const QString &body,
                  const QStringList &attachments, const QString &to);

    /// Fills and applies the entries in ascending key order and returns true
    /// at the first that succeeds; later entries are neither filled nor
    /// started. False when all fail or the map is empty.
    bool apply(const QString &subject, const QString &body,
               const QStringList &attachments, const QString &to);
};

} // namespace oru

#endif
