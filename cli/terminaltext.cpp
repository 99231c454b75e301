#include "terminaltext.h"

#include "chat/markup/plainwriter.h"

namespace TerminalText {

QString safe(QStringView text, Lines lines)
{
    if (lines == Lines::Join)
        return Markup::PlainWriter::printable(text);
    QString out;
    out.reserve(text.size());
    qsizetype start = 0;
    for (qsizetype end = text.indexOf(u'\n'); end >= 0; end = text.indexOf(u'\n', start)) {
        out += Markup::PlainWriter::printable(text.mid(start, end - start));
        out += u'\n';
        start = end + 1;
    }
    out += Markup::PlainWriter::printable(text.mid(start));
    return out;
}

} // namespace TerminalText
