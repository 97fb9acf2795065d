#include "support/IPAddress.h"

namespace oru {

bool IPAddress::isIPv4Address(const QByteArray &text)
{
    const char *p = text.constData();
    const char *const end = p + text.size();
    for (int field = 0; field < 4; ++field) {
        if (field > 0) {
            if (p == end || *p != '.')
                return false;
            ++p;
        }
        const char *const start = p;
        int value = 0;
        while (p != end && *p >= '0' && *p <= '9' && p - start < 3) {
            value = value * 10 + (*p - '0');
            ++p;
        }
        const int digits = int(p - start);
        if (digits == 0 || value > 255)
            return false;
        if (digits > 1 && *start == '0')
            return false;
    }
    return p == end;
}

} // namespace oru
