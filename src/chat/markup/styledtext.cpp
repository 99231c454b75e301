#include "styledtext.h"

namespace Markup {

QString Line::text() const
{
    qsizetype size = 0;
    for (const Run &run : runs)
        size += run.text.size();
    QString out;
    out.reserve(size);
    for (const Run &run : runs)
        out += run.text;
    return out;
}

} // namespace Markup
