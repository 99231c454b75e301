#include "textsizememo.h"

#include <QCryptographicHash>
#include <QFont>
#include <QTextDocument>
#include <QTextOption>

QSizeF TextSizeMemo::measure(const QString &html, qreal width, const QString &family, int pixelSize,
                             bool bold)
{
    if (width <= 0 || html.isEmpty())
        return {};
    // Widths within a pixel share a layout.
    const int w = int(width);
    QCryptographicHash hash(QCryptographicHash::Sha1);
    hash.addData(html.toUtf8());
    const QString key = QString::fromLatin1(hash.result().toHex()) + QLatin1Char('/') +
                        QString::number(w) + QLatin1Char('/') + family + QLatin1Char('/') +
                        QString::number(pixelSize) + (bold ? QLatin1Char('b') : QLatin1Char('r'));
    const auto found = m_sizes.constFind(key);
    if (found != m_sizes.cend())
        return *found;
    QTextDocument document;
    QFont font(family);
    font.setPixelSize(pixelSize);
    font.setBold(bold);
    document.setDefaultFont(font);
    document.setDocumentMargin(0);
    QTextOption option = document.defaultTextOption();
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    document.setDefaultTextOption(option);
    document.setHtml(html);
    document.setTextWidth(w);
    const QSizeF measured(qMin(document.idealWidth(), qreal(w)), document.size().height());
    ++m_measured;
    if (m_sizes.size() >= limit)
        m_sizes.clear();
    m_sizes.insert(key, measured);
    return measured;
}
