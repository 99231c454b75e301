#pragma once

// Compact, readable forms of styled text for comparing in tests.

#include "chat/markup/styledtext.h"

#include <QStringList>

#include <utility>

// "plain|bold{b}|link{@https://x}": runs joined by "|", each with its style letters
// (b i u s c p q) and link target in braces.
inline QString describe(const QList<Markup::Run> &runs)
{
    QStringList parts;
    for (const Markup::Run &run : runs) {
        const Markup::Style &s = run.style;
        QString flags;
        const bool on[] = {s.bold, s.italic, s.underline, s.strike, s.code, s.pre, s.quote};
        for (int i = 0; i < 7; ++i)
            flags += on[i] ? QString(QChar(u"biuscpq"[i])) : QString();
        if (!s.link.isEmpty())
            flags += u'@' + s.link;
        parts.append(flags.isEmpty() ? run.text : run.text + u'{' + flags + u'}');
    }
    return parts.join(u'|');
}

// Direction marks and isolates made visible: <LRM> <RLM> <LRI> <RLI> <PDI>.
inline QString visible(QString text)
{
    for (const auto &[mark, name] : {std::pair{0x200E, "<LRM>"},
                                     {0x200F, "<RLM>"},
                                     {0x2066, "<LRI>"},
                                     {0x2067, "<RLI>"},
                                     {0x2069, "<PDI>"}})
        text.replace(QChar(mark), QLatin1String(name));
    return text;
}
