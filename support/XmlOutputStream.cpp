#include "support/XmlOutputStream.h"

#include <QXmlStreamWriter>

namespace oru {

XmlOutputStream::XmlOutputStream(QXmlStreamWriter& writer)
    : m_writer(&writer)
{
}

void XmlOutputStream::element(const QString& name, const QString& value)
{
    m_writer->writeTextElement(name, value);
}

void XmlOutputStream::element(const QString& name, const char* value)
{
    element(name, QString::fromUtf8(value));
}

void XmlOutputStream::element(const QString& name, int value)
{
    element(name, QString::number(value));
}

void XmlOutputStream::element(const QString& name, bool value)
{
    element(name, value ? QStringLiteral("true") : QStringLiteral("false"));
}

QXmlStreamWriter& XmlOutputStream::writer() const
{
    return *m_writer;
}

} // namespace oru
