#pragma once

#include <QHash>
#include <QObject>
#include <QSizeF>
#include <QtQml/qqmlregistration.h>

// Measured heights of rendered texts, so that scrolling back over a long conversation lays out
// each text once: a delegate gets its height before its text item exists.
class TextSizeMemo : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    using QObject::QObject;

    // The size of html laid out within width (its own width when narrower), in the given
    // font; measured on the first ask.
    Q_INVOKABLE QSizeF measure(const QString &html, qreal width, const QString &family,
                               int pixelSize, bool bold = false);

    int size() const { return int(m_sizes.size()); }
    // Layouts measured, not served from the memo.
    int measured() const { return m_measured; }

    static constexpr int limit = 20000;

private:
    QHash<QString, QSizeF> m_sizes;
    int m_measured = 0;
};
