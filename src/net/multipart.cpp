#include "multipart.h"

#include <QUuid>

using namespace Qt::StringLiterals;

namespace Multipart {

QString newBoundary()
{
    return u"rbp-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QByteArray body(const QString &boundary, const Fields &fields, const File &file)
{
    const QByteArray dashes = "--" + boundary.toUtf8();
    QByteArray out;
    out.reserve(file.data.size() + 256 * (fields.size() + 1));
    for (const auto &[name, value] : fields) {
        out += dashes + "\r\n";
        out += "Content-Disposition: form-data; name=\"" + name.toUtf8() + "\"\r\n\r\n";
        out += value.toUtf8() + "\r\n";
    }
    out += dashes + "\r\n";
    out += "Content-Disposition: form-data; name=\"" + file.part.toUtf8() + "\"; filename=\""
           + file.filename.toUtf8() + "\"\r\n";
    out += "Content-Type: " + file.mime.toUtf8() + "\r\n\r\n";
    out += file.data;
    out += "\r\n" + dashes + "--\r\n";
    return out;
}

QByteArray contentType(const QString &boundary)
{
    return "multipart/form-data; boundary=" + boundary.toUtf8();
}

} // namespace Multipart
