#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

// A multipart/form-data body with text fields and one file part.
namespace Multipart {

struct File {
    QString part;     // form field name of the file
    QString filename;
    QString mime;     // "application/octet-stream" when unknown
    QByteArray data;
};

using Fields = QList<QPair<QString, QString>>;

// "rbp-" and a fresh upper-case UUID.
QString newBoundary();

// Names and values go in verbatim: callers pass plain identifiers.
QByteArray body(const QString &boundary, const Fields &fields, const File &file);

QByteArray contentType(const QString &boundary);

} // namespace Multipart
