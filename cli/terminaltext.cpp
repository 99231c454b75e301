#include "terminaltext.h"

#include "chat/markup/plainwriter.h"

namespace TerminalText {

QString safe(QStringView text, Lines lines)
{
    if (lines == Lines::Join)
        return Markup::PlainWriter::printable(text);
    // One pass: every character as printable() shows it, line breaks kept.
    QString out;
    out.reserve(text.size());
    qsizetype clean = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t u = text[i].unicode();
        if (u == u'\n' || (u >= 0x20 && u != 0x7F && (u < 0x80 || u > 0x9F)))
            continue;
        out += text.sliced(clean, i - clean);
        out += Markup::PlainWriter::printable(text.sliced(i, 1));
        clean = i + 1;
    }
    out += text.sliced(clean);
    return out;
}

} // namespace TerminalText
