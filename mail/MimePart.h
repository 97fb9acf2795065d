// One node of a message's MIME tree.
#ifndef QUILLET_MAIL_MIMEPART_H
#define QUILLET_MAIL_MIMEPART_H

#include "quillet_export.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

QT_BEGIN_NAMESPACE
class QImage;
QT_END_NAMESPACE

namespace oru {

/// A MIME node: header lines, child nodes and body bytes, held in memory.
/// Nothing is checked: a node may hold content and children at once, and its
/// "Content-Type" need not match its bytes. No transfer encoding is applied
/// here. Copies are independent values that share storage until changed.
class QUILLET_EXPORT MimePart
{
public:
    /// A node whose only header is "Content-Type" = contentType.
    explicit MimePart(const QString &contentType);

    /// Removes every header, "Content-Type" included, every child and the content.
    void clear();
    /// True when there is no content and no child; headers do not count.
    bool isEmpty() const { return content.isEmpty() && parts.isEmpty(); }

    /// The header's value; a missing header is first added with an empty value.
    QString &operator[](const QString &headerName);
    /// The header's value, or an empty string. The const index never inserts.
    QString operator[](const QString &headerName) const;
    /// The child at index. Missing positions up to index are first filled with
    /// new empty "text/plain" children. The index must not be negative.
    MimePart &operator[](int index);
    /// The child at index, which must exist; nothing is added.
    const MimePart &operator[](int index) const;

    /// Appends a copy of part as the last child.
    MimePart &operator<<(const MimePart &part);
    /// Appends a new child of that content type and returns it. The reference
    /// is valid until this node's child list changes again.
    MimePart &attach(const QString &contentType);

    /// Takes source's content and every source header whose name starts with
    /// "Content" (case-sensitive), keeps this node's other headers, and then
    /// drops all children of this node. source may be one of those children.
    void copyContentFrom(const MimePart &source);

    /// "Content-Disposition" = "disposition; filename=\"fileName\"", or the
    /// disposition alone when fileName is empty. The name is not escaped.
    void setContentDisposition(const QString &disposition, const QString &fileName);

    /// Reads the file over the content from its first byte. Older content
    /// beyond the file's length stays; a file that cannot be read adds nothing.
    /// "Content-Type" is left alone.
    void setFile(const QString &path);

    /// Writes the image in format (Qt image writer name, default quality) over
    /// the content from its first byte, like setFile(). Failures are silent.
    void setImage(const QImage &image, const char *format);

    /// Appends "; charset=<charset>" to "Content-Type" (to whatever it holds,
    /// so a second call adds a second parameter) and replaces the content with
    /// text encoded in that charset. A null charset or one unknown to Qt's
    /// codec registry still gets its parameter; the text is then encoded in
    /// UTF-8.
    void setText(const QString &text, const char *charset = "utf-8");
    /// "Content-Type" = "text/plain", then setText().
    void setPlainText(const QString &text, const char *charset = "utf-8");
    /// "Content-Type" = "text/html", then setText().
    void setHtmlText(const QString &text, const char *charset = "utf-8");

    /// Header name to value; exact, case-sensitive names in ascending order.
    QMap<QString, QString> headers;
    /// The children, in order.
    QList<MimePart> parts;
    /// The body bytes, without transfer encoding.
    QByteArray content;
};

} // namespace oru

#endif
