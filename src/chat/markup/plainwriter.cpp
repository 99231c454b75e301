#include "plainwriter.h"

#include "markup.h"

namespace Markup::PlainWriter {

namespace {

QChar markOf(bool rtl)
{
    return rtl ? rightToLeftMark : leftToRightMark;
}

} // namespace

namespace {

// Where the first character that printable() shows differently is; the size when none is.
qsizetype firstUnprintable(QStringView text)
{
    qsizetype first = 0;
    for (; first < text.size(); ++first) {
        const char16_t u = text[first].unicode();
        if ((u < 0x20 && u != u'\t') || (u >= 0x7F && u <= 0x9F))
            break;
    }
    return first;
}

} // namespace

QString printable(const QString &text)
{
    // Most text has nothing to show differently: shared, not copied.
    return firstUnprintable(text) == text.size() ? text : printable(QStringView(text));
}

QString printable(QStringView text)
{
    const qsizetype first = firstUnprintable(text);
    if (first == text.size())
        return text.toString();
    QString out;
    out.reserve(text.size());
    out += text.first(first);
    for (const QChar c : text.sliced(first)) {
        const char16_t u = c.unicode();
        if (u < 0x20 && u != u'\t')
            out += QChar(0x2400 + u); // the Control Pictures block: ␛ for ESC
        else if (u == 0x7F)
            out += QChar(0x2421);
        else if (u >= 0x80 && u <= 0x9F)
            out += QChar::ReplacementCharacter;
        else
            out += c;
    }
    return out;
}

QString write(const QList<Block> &blocks)
{
    QStringList lines;
    for (const Block &block : blocks) {
        if (block.kind == Block::Kind::Line) {
            lines.append(markOf(block.line.rtl) + printable(block.line.text()));
            continue;
        }
        auto row = [&](const QList<Line> &cells) {
            QStringList texts;
            for (const Line &cell : cells)
                texts.append(printable(cell.text()));
            lines.append(markOf(block.table.rtl) + texts.join(u" | "));
        };
        row(block.table.head);
        for (const QList<Line> &r : block.table.rows)
            row(r);
    }
    return lines.join(u'\n');
}

} // namespace Markup::PlainWriter
