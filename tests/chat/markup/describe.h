#pragma once

// Compact, readable forms of styled text for comparing in tests.

#include "chat/markup/styledtext.h"

#include <QString>

#include <utility>

// "plain|bold{b}|link{@https://x}": runs joined by "|", each with its style letters
// (b i u s c p q) and link target in braces.
inline QString describe(const QList<Markup::Run> &runs)
{
    QStringList parts;
    for (const Markup::Run &run : runs) {
        const Markup::Style &s = run.style;
        QString flags;
        for (const auto &[on, letter] : {std::pair{s.bold, u'b'}, {s.italic, u'i'},
                                         {s.underline, u'u'}, {s.strike, u's'}, {s.code, u'c'},
                                         {s.pre, u'p'}, {s.quote, u'q'}})
            flags += on ? QString(QChar(letter)) : QString();
        if (!s.link.isEmpty())
            flags += u'@' + s.link;
        parts.append(flags.isEmpty() ? run.text : run.text + u'{' + flags + u'}');
    }
    return parts.join(u'|');
}

// Direction marks and isolates made visible: <LRM> <RLM> <LRI> <RLI> <PDI>.
inline QString visible(QString text)
{
    for (const auto &[mark, name] : {std::pair{0x200E, "<LRM>"}, {0x200F, "<RLM>"},
                                     {0x2066, "<LRI>"}, {0x2067, "<RLI>"}, {0x2069, "<PDI>"}})
        text.replace(QChar(mark), QLatin1String(name));
    return text;
}
