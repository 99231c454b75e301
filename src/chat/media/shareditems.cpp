#include "shareditems.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QImageWriter>
#include <QMimeData>
#include <QMimeDatabase>
#include <QPainter>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace SharedItems {

namespace {

const QString unknown = u"application/octet-stream"_s;

// Types toolkits and window systems put on the clipboard for their own use.
const QStringList privatePrefixes = {
    u"application/x-qt-"_s,          u"application/x-kde-"_s, u"x-special/"_s,
    u"application/x-moz-"_s,         u"chromium/"_s,          u"application/x-gtk-"_s,
    u"application/x-libreoffice-"_s,
};

} // namespace

QString scratch()
{
    const QString name = u"shared-"_s + QUuid::createUuid().toString(QUuid::Id128).left(12);
    QDir temp = QDir::temp();
    if (!temp.mkpath(name))
        return {};
    return temp.filePath(name);
}

QString named(const QString &type)
{
    // By the canonical name: an alias ("image/jpg") knows no suffixes of its own.
    const QMimeType found = QMimeDatabase().mimeTypeForName(mime(type));
    const QString base = type.startsWith(u"image/") ? u"photo"_s : u"file"_s;
    const QString suffix = found.isValid() ? found.preferredSuffix() : QString();
    return suffix.isEmpty() ? base : base + u'.' + suffix;
}

QString mime(const QString &type)
{
    const QMimeType found = QMimeDatabase().mimeTypeForName(type.trimmed());
    return found.isValid() && !found.isDefault() ? found.name() : unknown;
}

QString mimeOfFile(const QString &path)
{
    const QMimeType found = QMimeDatabase().mimeTypeForFile(path);
    return found.isValid() ? found.name() : unknown;
}

bool isFileType(const QString &format)
{
    if (!format.contains(u'/') || format.startsWith(u"text/"))
        return false;
    for (const QString &prefix : privatePrefixes) {
        if (format.startsWith(prefix))
            return false;
    }
    return mime(format) != unknown;
}

Held held(const QStringList &formats, const QList<QUrl> &urls)
{
    for (const QUrl &url : urls) {
        if (url.isLocalFile())
            return Held::Files;
    }
    bool data = false;
    for (const QString &format : formats) {
        if (format.startsWith(u"image/") || format == u"application/x-qt-image")
            return Held::Image;
        data = data || isFileType(format);
    }
    return data ? Held::Data : Held::Nothing;
}

QByteArray jpeg(const QImage &image)
{
    if (image.isNull())
        return {};
    // JPEG has no alpha: flatten onto white so transparent parts do not turn black.
    QImage flat(image.size(), QImage::Format_RGB32);
    flat.fill(Qt::white);
    {
        QPainter painter(&flat);
        painter.drawImage(0, 0, image);
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(90);
    if (!writer.write(flat))
        return {};
    return bytes;
}

QList<SharedItem> fromMime(const QMimeData *data)
{
    if (!data)
        return {};
    const QList<QUrl> urls = data->hasUrls() ? data->urls() : QList<QUrl>();
    QList<SharedItem> items;
    switch (held(data->formats(), urls)) {
    case Held::Nothing:
        break;
    case Held::Files:
        for (const QUrl &url : urls) {
            const QString path = url.toLocalFile();
            if (url.isLocalFile() && QFileInfo(path).isFile())
                items.append({path, {}, QFileInfo(path).fileName(), mimeOfFile(path)});
        }
        break;
    case Held::Image: {
        const QByteArray bytes = jpeg(qvariant_cast<QImage>(data->imageData()));
        if (!bytes.isEmpty())
            items.append({{}, bytes, u"photo.jpg"_s, u"image/jpeg"_s});
        break;
    }
    case Held::Data:
        for (const QString &format : data->formats()) {
            if (!isFileType(format))
                continue;
            const QByteArray bytes = data->data(format);
            if (!bytes.isEmpty()) {
                const QString type = mime(format);
                items.append({{}, bytes, named(type), type});
                break; // one file offered in several types is still one file
            }
        }
        break;
    }
    return items;
}

} // namespace SharedItems
