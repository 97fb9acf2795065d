#include "support/ovkString.h"

#include <utility>

namespace oru {

ovkString::ovkString(const char* utf8) : s(utf8 ? utf8 : "")
{
}

ovkString::ovkString(std::string utf8) : s(std::move(utf8))
{
}

ovkString::ovkString(const QString& text) : s(text.toStdString())
{
}

QString ovkString::toQString() const
{
    return QString::fromStdString(s);
}

ovkString& ovkString::operator+=(const ovkString& other)
{
    s += other.s;
    return *this;
}

} // namespace oru
