#ifndef ORU_SUPPORT_OVKEXCEPTION_H
#define ORU_SUPPORT_OVKEXCEPTION_H

#include "support/ovkStringList.h"

#include <exception>
#include <string>

namespace oru {

/// An exception of the Qt-free support layer. It carries a list of
/// messages: the first says what failed, later ones add context as the
/// exception travels outwards. what() is the messages joined with ",".
class ovkException : public std::exception
{
public:
    explicit ovkException(const ovkString& message);
    explicit ovkException(const ovkStringList& messages);

    const ovkStringList& messages() const { return list; }
    /// Appends a message of context.
    void addMessage(const ovkString& message);

    const char* what() const noexcept override;

private:
    ovkStringList list;
    std::string joined;
};

} // namespace oru

#endif
