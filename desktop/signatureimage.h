#pragma once

#include <QImage>
#include <QList>
#include <QPointF>
#include <QSize>
#include <QString>
#include <QVariantList>

// A signature drawn on the pad, kept in the vault as one text: a PNG (dark ink on a
// transparent ground) as a "data:image/png;base64," URL, which any viewer can show.
namespace SignatureImage {

using Stroke = QList<QPointF>;

inline const QString prefix = QStringLiteral("data:image/png;base64,");

// The strokes drawn on a pad of `size`; "" when nothing was drawn.
QString encode(const QList<Stroke> &strokes, QSize size);
// Strokes as the pad hands them over: a list of lists of {x, y}.
QList<Stroke> strokesOf(const QVariantList &strokes);
// The picture of an encoded signature; a null image when the text is not one.
QImage decode(const QString &text);
bool isSignature(const QString &text);

} // namespace SignatureImage
