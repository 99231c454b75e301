#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

class QImage;
class QMimeData;

// One thing shared into the composer: a local file, or bytes (an image, a pasted file) with
// the name and type it gets.
struct SharedItem {
    QString path; // a local file; empty when the bytes are in data
    QByteArray data;
    QString name;
    QString mime;

    bool isFile() const { return !path.isEmpty(); }
};

// How files reach the composer: names and types for what comes without them, images as
// "photo.jpg", and what of the clipboard counts as a file at all.
namespace SharedItems {

// What the clipboard holds, as far as attaching goes.
enum class Held {
    Nothing, // text, or only private types: it pastes as text
    Files,   // local files
    Image,   // a picture: it goes as "photo.jpg"
    Data,    // the bytes of a real file type (a PDF copied from a viewer)
};

// A fresh folder in the temporary directory ("shared-…"); "" when none could be made.
QString scratch();
// The name a nameless item of a MIME type gets: "photo" for images, otherwise "file", plus
// the type's extension.
QString named(const QString &mime);
// The MIME type of a type name or alias; "application/octet-stream" when unknown.
QString mime(const QString &type);
// The MIME type of a local file, by its name and then its contents.
QString mimeOfFile(const QString &path);
// A clipboard format that stands for a file: a known MIME type, not text, not a window
// system's or toolkit's private type.
bool isFileType(const QString &format);
Held held(const QStringList &formats, const QList<QUrl> &urls);
// JPEG at quality 0.9, transparent parts on white; empty when it cannot be encoded.
QByteArray jpeg(const QImage &image);
// The clipboard's contents as items; empty when it holds nothing to attach.
QList<SharedItem> fromMime(const QMimeData *data);

} // namespace SharedItems
