#ifndef ORU_SUPPORT_XMLUTILS_H
#define ORU_SUPPORT_XMLUTILS_H

#include <QDomElement>
#include <QString>

namespace oru {

/// Reads settings values from the child elements of a DOM element.
///
/// Each reader looks at the first direct child element with the given tag
/// name and returns the default when there is none or when its text cannot
/// be read as the requested type.
class XmlUtils
{
public:
    /// The child's text as it stands (not trimmed).
    static QString stringValue(const QDomElement& parent, const QString& name,
                               const QString& defaultValue = QString());
    /// The child's trimmed text as a decimal int.
    static int intValue(const QDomElement& parent, const QString& name, int defaultValue);
    /// The child's text read by toBool().
    static bool boolValue(const QDomElement& parent, const QString& name, bool defaultValue);

    /// Reads "true"/"false", "1"/"0", "yes"/"no" or "on"/"off" in any case,
    /// surrounding white space ignored; any other text gives defaultValue.
    static bool toBool(const QString& text, bool defaultValue);
};

} // namespace oru

#endif
