#include "support/ovkStringList.h"

namespace oru {

ovkStringList::ovkStringList(std::initializer_list<ovkString> list) : items(list)
{
}

void ovkStringList::append(const ovkString& item)
{
    items.push_back(item);
}

ovkStringList& ovkStringList::operator<<(const ovkString& item)
{
    items.push_back(item);
    return *this;
}

ovkString ovkStringList::concatenate(const ovkString& separator) const
{
    std::size_t total = 0;
    for (const ovkString& item : items)
        total += item.size() + separator.size();
    std::string out;
    out.reserve(total);
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0)
            out += separator.str();
        out += items[i].str();
    }
    return ovkString(std::move(out));
}

} // namespace oru
