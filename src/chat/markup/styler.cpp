#include "styler.h"

#include "chars.h"
#include "markup.h"
#include "patterns.h"

namespace Markup::Styler {

namespace {

using Patterns::Span;

struct Depths {
    int bold = 0;
    int italic = 0;
    int underline = 0;
    int strike = 0;
    int code = 0;
    int pre = 0;
    int quote = 0;
    QString link;

    int *counter(const QString &name)
    {
        if (name == u"b" || name == u"strong")
            return &bold;
        if (name == u"i" || name == u"em")
            return &italic;
        if (name == u"u")
            return &underline;
        if (name == u"s")
            return &strike;
        if (name == u"code")
            return &code;
        if (name == u"pre")
            return &pre;
        if (name == u"blockquote")
            return &quote;
        return nullptr;
    }

    void apply(const Patterns::Tag &tag)
    {
        if (tag.name == u"a") {
            // An unsafe target (javascript:, data:, a relative path) leaves the label as text.
            const QString target = tag.closing ? QString() : decoded(tag.href);
            link = openable(target) ? target : QString();
            return;
        }
        if (int *c = counter(tag.name))
            *c = tag.closing ? qMax(0, *c - 1) : *c + 1;
    }

    Style style() const
    {
        return {bold > 0, italic > 0, underline > 0, strike > 0,
                code > 0, pre > 0,    quote > 0,     link};
    }
    bool literal() const { return code > 0 || pre > 0; }
};

struct Segment {
    qsizetype start = 0;
    qsizetype end = 0;
    Style style;
    bool literal = false;
};

class Builder
{
public:
    void add(QStringView text, const Style &style)
    {
        if (text.isEmpty())
            return;
        if (!m_runs.isEmpty() && m_runs.last().style == style)
            m_runs.last().text += text;
        else
            m_runs.append({text.toString(), style});
    }

    // Text outside links: escapes, then entities.
    void plain(QStringView text, const Style &style)
    {
        if (text.contains(u'\\') || text.contains(u'&'))
            add(decoded(Patterns::unescaped(text)), style);
        else
            add(text, style);
    }

    void bare(QStringView text, const Style &style)
    {
        qsizetype pos = 0;
        for (const Span &s : Patterns::findBareLinks(text)) {
            plain(text.sliced(pos, s.start - pos), style);
            Style linked = style;
            linked.link = decoded(text.sliced(s.start, s.end - s.start));
            add(linked.link, linked);
            pos = s.end;
        }
        plain(text.sliced(pos), style);
    }

    void inlined(QStringView text, const Style &style)
    {
        // Inside an <a> the anchor's target stands; markdown links are not nested in it.
        if (!style.link.isEmpty()) {
            plain(text, style);
            return;
        }
        qsizetype pos = 0;
        if (Chars::contains(text, u"](")) {
            for (const Patterns::Link &l : Patterns::findMdLinks(text)) {
                bare(text.sliced(pos, l.start - pos), style);
                Style linked = style;
                linked.link = decoded(l.url);
                QString label = decoded(
                    Patterns::unescaped(text.sliced(l.labelStart, l.labelEnd - l.labelStart)));
                add(label.isEmpty() ? linked.link : label, linked);
                pos = l.end;
            }
        }
        bare(text.sliced(pos), style);
    }

    QList<Run> take() { return std::move(m_runs); }

private:
    QList<Run> m_runs;
};

bool isPre(const Patterns::Tag *tag, bool closing)
{
    return tag && tag->name == u"pre" && tag->closing == closing;
}

// As in HTML, the line break just inside <pre> and the one just before </pre> are not shown:
// a block written on lines of its own adds no empty lines.
QList<Segment> segmentsOf(QStringView text, const QList<Patterns::Tag> &tags)
{
    QList<Segment> out;
    Depths depths;
    const Patterns::Tag *previous = nullptr;
    auto add = [&](qsizetype start, qsizetype end, const Patterns::Tag *next) {
        if (isPre(previous, false) && text.sliced(start, end - start).startsWith(u"\r\n"))
            start += 2;
        else if (isPre(previous, false) && start < end && text[start] == u'\n')
            start += 1;
        if (isPre(next, true) && start < end && text[end - 1] == u'\n')
            end -= end - 2 >= start && text[end - 2] == u'\r' ? 2 : 1;
        if (end > start)
            out.append({start, end, depths.style(), depths.literal()});
    };
    qsizetype pos = 0;
    for (const Patterns::Tag &tag : tags) {
        add(pos, tag.start, &tag);
        depths.apply(tag);
        previous = &tag;
        pos = tag.end;
    }
    add(pos, text.size(), nullptr);
    return out;
}

// **bold** is looked for in the text with tags and literal parts blanked out, so that a bold
// span may enclose tags and code but its "**" are never found inside them.
QList<Span> boldSpans(QStringView text, const QList<Segment> &segments, bool tagged)
{
    if (!Chars::contains(text, u"**"))
        return {};
    const bool anyLiteral =
        std::any_of(segments.begin(), segments.end(), [](const Segment &s) { return s.literal; });
    if (!tagged && !anyLiteral)
        return Patterns::findBold(text);
    QString masked(text.size(), QChar(u' '));
    for (const Segment &s : segments) {
        if (!s.literal)
            std::copy(text.begin() + s.start, text.begin() + s.end, masked.begin() + s.start);
    }
    return Patterns::findBold(masked);
}

} // namespace

QList<Run> runs(QStringView input)
{
    QString fixed;
    const QStringView text = Chars::valid(input, fixed);
    const QList<Patterns::Tag> tags =
        text.contains(u'<') ? Patterns::findTags(text) : QList<Patterns::Tag>();
    const QList<Segment> segments = segmentsOf(text, tags);
    const QList<Span> bolds = boldSpans(text, segments, !tags.isEmpty());

    Builder out;
    qsizetype bi = 0;
    const qsizetype nb = bolds.size();
    for (const Segment &seg : segments) {
        if (seg.literal) {
            while (bi < nb && bolds[bi].end <= seg.start)
                ++bi;
            Style style = seg.style;
            style.bold |=
                bi < nb && bolds[bi].start + 2 <= seg.start && seg.start < bolds[bi].end - 2;
            const QStringView literal = text.sliced(seg.start, seg.end - seg.start);
            if (literal.contains(u'&'))
                out.add(decoded(literal), style);
            else
                out.add(literal, style);
            continue;
        }
        qsizetype k = seg.start;
        while (k < seg.end) {
            while (bi < nb && bolds[bi].end <= k)
                ++bi;
            if (bi == nb) {
                out.inlined(text.sliced(k, seg.end - k), seg.style);
                break;
            }
            const Span &b = bolds[bi];
            if (k < b.start) {
                const qsizetype next = qMin(seg.end, b.start);
                out.inlined(text.sliced(k, next - k), seg.style);
                k = next;
            } else if (k < b.start + 2) {
                k = b.start + 2; // the opening "**"
            } else if (k < b.end - 2) {
                const qsizetype next = qMin(seg.end, b.end - 2);
                Style style = seg.style;
                style.bold = true;
                out.inlined(text.sliced(k, next - k), style);
                k = next;
            } else {
                k = b.end; // the closing "**"
            }
        }
    }
    return out.take();
}

} // namespace Markup::Styler
