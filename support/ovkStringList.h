#ifndef ORU_SUPPORT_OVKSTRINGLIST_H
#define ORU_SUPPORT_OVKSTRINGLIST_H

#include "support/ovkString.h"

#include <initializer_list>
#include <vector>

namespace oru {

/// An ordered list of ovkString values.
class ovkStringList
{
public:
    using const_iterator = std::vector<ovkString>::const_iterator;

    ovkStringList() = default;
    ovkStringList(std::initializer_list<ovkString> items);

    void append(const ovkString& item);
    ovkStringList& operator<<(const ovkString& item);

    int size() const { return int(items.size()); }
    bool isEmpty() const { return items.empty(); }
    /// The item at index; index must be valid.
    const ovkString& at(int index) const { return items.at(std::size_t(index)); }
    const_iterator begin() const { return items.begin(); }
    const_iterator end() const { return items.end(); }

    /// The items joined with separator between each two of them; empty for
    /// an empty list.
    ovkString concatenate(const ovkString& separator) const;

    friend bool operator==(const ovkStringList& a, const ovkStringList& b)
    {
        return a.items == b.items;
    }

private:
    std::vector<ovkString> items;
};

} // namespace oru

#endif
