#include "support/XmlUtils.h"

namespace oru {

QString XmlUtils::stringValue(const QDomElement& parent, const QString& name,
                              const QString& defaultValue)
{
    const QDomElement child = parent.firstChildElement(name);
    return child.isNull() ? defaultValue : child.text();
}

int XmlUtils::intValue(const QDomElement& parent, const QString& name, int defaultValue)
{
    const QDomElement child = parent.firstChildElement(name);
    if (child.isNull())
        return defaultValue;
    bool ok = false;
    const int value = child.text().trimmed().toInt(&ok);
    return ok ? value : defaultValue;
}

bool XmlUtils::boolValue(const QDomElement& parent, const QString& name, bool defaultValue)
{
    const QDomElement child = parent.firstChildElement(name);
    return child.isNull() ? defaultValue : toBool(child.text(), defaultValue);
}

bool XmlUtils::toBool(const QString& text, bool defaultValue)
{
    const QString word = text.trimmed().toLower();
    if (word == QLatin1String("true") || word == QLatin1String("1")
        || word == QLatin1String("yes") || word == QLatin1String("on"))
        return true;
    if (word == QLatin1String("false") || word == QLatin1String("0")
        || word == QLatin1String("no") || word == QLatin1String("off"))
        return false;
    return defaultValue;
}

} // namespace oru
