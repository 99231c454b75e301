#include "chars.h"

namespace Markup::Chars {

namespace {

// Most text holds no surrogate at all: look for one sixteen units at a time first.
qsizetype firstSurrogate(QStringView text, qsizetype from)
{
    const char16_t *p = text.utf16();
    const qsizetype n = text.size();
    qsizetype i = from;
    for (; i + 16 <= n; i += 16) {
        unsigned found = 0;
        for (int k = 0; k < 16; ++k)
            found |= (p[i + k] & 0xF800) == 0xD800;
        if (found)
            break;
    }
    for (; i < n; ++i) {
        if ((p[i] & 0xF800) == 0xD800)
            return i;
    }
    return -1;
}

qsizetype firstUnpaired(QStringView text, qsizetype from)
{
    const qsizetype n = text.size();
    for (qsizetype i = firstSurrogate(text, from); i >= 0 && i < n;
         i = firstSurrogate(text, i + 1)) {
        const QChar c = text[i];
        if (c.isHighSurrogate() && i + 1 < n && text[i + 1].isLowSurrogate()) {
            ++i;
            continue;
        }
        return i;
    }
    return -1;
}

} // namespace

bool contains(QStringView text, QStringView needle, Qt::CaseSensitivity cs)
{
    if (needle.isEmpty())
        return true;
    const QChar first = needle.front();
    for (qsizetype at = text.indexOf(first); at >= 0; at = text.indexOf(first, at + 1)) {
        if (text.sliced(at).startsWith(needle, cs))
            return true;
    }
    return false;
}

QStringView valid(QStringView text, QString &storage)
{
    qsizetype bad = firstUnpaired(text, 0);
    if (bad < 0)
        return text;
    storage = text.toString();
    while (bad >= 0) {
        storage[bad] = QChar::ReplacementCharacter;
        bad = firstUnpaired(storage, bad + 1);
    }
    return storage;
}

QString valid(const QString &text)
{
    QString storage;
    const QStringView view = valid(QStringView(text), storage);
    return view.data() == text.constData() ? text : storage;
}

} // namespace Markup::Chars
