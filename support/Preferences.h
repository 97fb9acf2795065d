#ifndef ORU_SUPPORT_PREFERENCES_H
#define ORU_SUPPORT_PREFERENCES_H

#include <QSettings>
#include <QString>

namespace oru {

/// Typed reads from a settings store that fall back to a default.
///
/// A missing key, or a value that cannot be read as the requested type,
/// gives the default. The store is only read.
class Preferences
{
public:
    /// A stored bool as it is; stored text (or a number) read by
    /// XmlUtils::toBool: true/false, 1/0, yes/no, on/off in any case.
    static bool boolValue(const QSettings& settings, const QString& key, bool defaultValue);
    /// A stored number, or text holding a decimal int.
    static int intValue(const QSettings& settings, const QString& key, int defaultValue);
    /// The stored text. A value that the store split into a list at its
    /// commas is joined again with ",".
    static QString stringValue(const QSettings& settings, const QString& key,
                               const QString& defaultValue = QString());
};

} // namespace oru

#endif
