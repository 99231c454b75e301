#pragma once

// Compact, readable forms of styled text for comparing in tests.

#include "chat/markup/styledtext.h"

#include <QString>

// "plain|bold{b}|link{@https://x}": runs joined by "|", each with its style letters
// (b i u s c p q) and link target in braces.
inline QString describe(const QList<Markup::Run> &runs)
{
    QStringList parts;
    for (const Markup::Run &run : runs) {
        QString flags;
        const Markup::Style &s = run.style;
        flags += s.bold ? QStringLiteral("b") : QString();
        flags += s.italic ? QStringLiteral("i") : QString();
        flags += s.underline ? QStringLiteral("u") : QString();
        flags += s.strike ? QStringLiteral("s") : QString();
        flags += s.code ? QStringLiteral("c") : QString();
        flags += s.pre ? QStringLiteral("p") : QString();
        flags += s.quote ? QStringLiteral("q") : QString();
        if (!s.link.isEmpty())
            flags += u'@' + s.link;
        parts.append(flags.isEmpty() ? run.text : run.text + u'{' + flags + u'}');
    }
    return parts.join(u'|');
}

// Direction marks and isolates made visible: <LRM> <RLM> <LRI> <RLI> <PDI>.
inline QString visible(QString text)
{
    text.replace(QChar(0x200E), QStringLiteral("<LRM>"));
    text.replace(QChar(0x200F), QStringLiteral("<RLM>"));
    text.replace(QChar(0x2066), QStringLiteral("<LRI>"));
    text.replace(QChar(0x2067), QStringLiteral("<RLI>"));
    text.replace(QChar(0x2069), QStringLiteral("<PDI>"));
    return text;
}
