#include "support/Preferences.h"

#include "support/XmlUtils.h"

#include <QStringList>
#include <QVariant>

namespace oru {

namespace {

// INI stores hand back text; native stores may hand back typed values. Lists
// and other non-scalar values do not read as a single value.
bool isScalar(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QString:
    case QMetaType::QByteArray:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

} // namespace

bool Preferences::boolValue(const QSettings& settings, const QString& key, bool defaultValue)
{
    const QVariant value = settings.value(key);
    if (!isScalar(value))
        return defaultValue;
    if (value.userType() == QMetaType::Bool)
        return value.toBool();
    return XmlUtils::toBool(value.toString(), defaultValue);
}

int Preferences::intValue(const QSettings& settings, const QString& key, int defaultValue)
{
    const QVariant value = settings.value(key);
    if (!isScalar(value) || value.userType() == QMetaType::Bool)
        return defaultValue;
    bool ok = false;
    const int number = value.toString().trimmed().toInt(&ok);
    return ok ? number : defaultValue;
}

QString Preferences::stringValue(const QSettings& settings, const QString& key,
                                 const QString& defaultValue)
{
    const QVariant value = settings.value(key);
    if (!value.isValid())
        return defaultValue;
    if (value.userType() == QMetaType::QStringList)
        return value.toStringList().join(QLatin1Char(','));
    return value.toString();
}

} // namespace oru
