#ifndef ORU_SUPPORT_XMLOUTPUTSTREAM_H
#define ORU_SUPPORT_XMLOUTPUTSTREAM_H

#include "quillet_export.h"

#include <QString>
#include <QXmlStreamWriter>

namespace oru {

/// Writes settings as simple text elements through a QXmlStreamWriter.
///
/// Each element() call writes one complete element, `<Name>value</Name>`, at
/// the writer's current position; the caller opens and closes any enclosing
/// element. The stream does not own the writer, which must outlive it.
class QUILLET_EXPORT XmlOutputStream
{
public:
    explicit XmlOutputStream(QXmlStreamWriter& writer);

    /// Writes `<name>value</name>`.
    void element(const QString& name, const QString& value);
    /// Same as the QString form; keeps a string literal from binding to bool.
    void element(const QString& name, const char* value);
    /// Writes the number in decimal.
    void element(const QString& name, int value);
    /// Writes "true" or "false".
    void element(const QString& name, bool value);

    /// The writer this stream writes to.
    QXmlStreamWriter& writer() const;

private:
    QXmlStreamWriter* m_writer;
};

} // namespace oru

#endif
