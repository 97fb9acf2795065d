#ifndef ORU_SUPPORT_EXCEPTIONQT_H
#define ORU_SUPPORT_EXCEPTIONQT_H

#include <QByteArray>
#include <QString>

#include <exception>

namespace oru {

/// An exception carrying one message as a QString; what() is its UTF-8.
class ExceptionQt : public std::exception
{
public:
    explicit ExceptionQt(const QString& message);

    QString message() const { return text; }
    const char* what() const noexcept override;

private:
    QString text;
    QByteArray utf8;
};

} // namespace oru

#endif
