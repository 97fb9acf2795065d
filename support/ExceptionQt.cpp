#include "support/ExceptionQt.h"

namespace oru {

ExceptionQt::ExceptionQt(const QString& message) : text(message), utf8(message.toUtf8())
{
}

const char* ExceptionQt::what() const noexcept
{
    return utf8.constData();
}

} // namespace oru
