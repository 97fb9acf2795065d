#ifndef ORU_SUPPORT_OVKSTRING_H
#define ORU_SUPPORT_OVKSTRING_H

#include <QString>

#include <string>

namespace oru {

/// A UTF-8 text on std::string: the string type of the Qt-free parts of the
/// support layer, such as the messages of ovkException.
class ovkString
{
public:
    ovkString() = default;
    /// From zero-terminated UTF-8; null reads as empty.
    ovkString(const char* utf8);
    ovkString(std::string utf8);
    explicit ovkString(const QString& text);

    const std::string& str() const { return s; }
    const char* c_str() const { return s.c_str(); }
    bool isEmpty() const { return s.empty(); }
    /// Length in bytes.
    std::size_t size() const { return s.size(); }
    QString toQString() const;

    ovkString& operator+=(const ovkString& other);
    friend ovkString operator+(ovkString a, const ovkString& b) { return a += b; }
    friend bool operator==(const ovkString& a, const ovkString& b) { return a.s == b.s; }
    friend bool operator!=(const ovkString& a, const ovkString& b) { return a.s != b.s; }
    friend bool operator<(const ovkString& a, const ovkString& b) { return a.s < b.s; }

private:
    std::string s;
};

} // namespace oru

#endif
