#include "signatureimage.h"

#include <QBuffer>
#include <QPainter>
#include <QPainterPath>
#include <QVariantMap>

namespace SignatureImage {

QString encode(const QList<Stroke> &strokes, QSize size)
{
    const bool drawn = std::any_of(strokes.cbegin(), strokes.cend(),
                                   [](const Stroke &stroke) { return !stroke.isEmpty(); });
    if (!drawn || size.isEmpty())
        return {};
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0x1a, 0x23, 0x7e), 3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    for (const Stroke &stroke : strokes) {
        if (stroke.size() == 1) { // a dot
            painter.drawPoint(stroke.first());
            continue;
        }
        QPainterPath path;
        for (qsizetype i = 0; i < stroke.size(); ++i) {
            if (i == 0)
                path.moveTo(stroke[i]);
            else
                path.lineTo(stroke[i]);
        }
        painter.drawPath(path);
    }
    painter.end();
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return prefix + QString::fromLatin1(png.toBase64());
}

QList<Stroke> strokesOf(const QVariantList &strokes)
{
    QList<Stroke> out;
    for (const QVariant &stroke : strokes) {
        Stroke points;
        for (const QVariant &point : stroke.toList()) {
            const QVariantMap map = point.toMap();
            points << QPointF(map.value(QStringLiteral("x")).toDouble(),
                              map.value(QStringLiteral("y")).toDouble());
        }
        out << points;
    }
    return out;
}

QImage decode(const QString &text)
{
    if (!isSignature(text))
        return {};
    return QImage::fromData(QByteArray::fromBase64(text.mid(prefix.size()).toLatin1()), "PNG");
}

bool isSignature(const QString &text)
{
    return text.startsWith(prefix);
}

} // namespace SignatureImage
