#include "htmlwriter.h"

#include "markup.h"

#include <QUrl>

namespace Markup::HtmlWriter {

namespace {

QStringView entityFor(char16_t u)
{
    switch (u) {
    case u'&':
        return u"&amp;";
    case u'<':
        return u"&lt;";
    case u'>':
        return u"&gt;";
    case u'"':
        return u"&quot;";
    case u'\'':
        return u"&#39;";
    default:
        return u"\uFFFD"; // control characters
    }
}

void escape(QString &out, QStringView text)
{
    qsizetype from = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t u = text[i].unicode();
        const bool special = u == u'&' || u == u'<' || u == u'>' || u == u'"' || u == u'\'' ||
                             (u < 0x20 && u != u'\t');
        if (!special)
            continue;
        out += text.sliced(from, i - from);
        out += entityFor(u);
        from = i + 1;
    }
    out += text.sliced(from);
}

// The link as an ASCII URL, or empty when it must not be a link.
QString target(const QString &link)
{
    if (link.isEmpty() || !openable(link))
        return {};
    // Already plain ASCII URL characters (the usual case): nothing to encode.
    const bool plain = std::all_of(link.begin(), link.end(), [](QChar c) {
        const char16_t u = c.unicode();
        return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') ||
               QStringView(u"-._~:/?#@!$&'()*+,;=%").contains(c);
    });
    if (plain)
        return link;
    const QUrl url(link);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || !(scheme == u"http" || scheme == u"https" || scheme == u"mailto"))
        return {};
    return QString::fromLatin1(url.toEncoded());
}

class Writer
{
public:
    void runs(const QList<Run> &runs)
    {
        for (const Run &run : runs) {
            const Style &s = run.style;
            const QString &href = targetOf(s.link);
            if (!href.isEmpty()) {
                out += u"<a href=\"";
                escape(out, href);
                out += u"\">";
            }
            if (s.bold)
                out += u"<b>";
            if (s.italic)
                out += u"<i>";
            if (s.underline)
                out += u"<u>";
            if (s.strike)
                out += u"<s>";
            if (s.code || s.pre)
                out += u"<code>";
            escape(out, run.text);
            if (s.code || s.pre)
                out += u"</code>";
            if (s.strike)
                out += u"</s>";
            if (s.underline)
                out += u"</u>";
            if (s.italic)
                out += u"</i>";
            if (s.bold)
                out += u"</b>";
            if (!href.isEmpty())
                out += u"</a>";
        }
    }

    void line(const Line &l);
    void cell(QStringView tag, const Line &l);
    void table(const Table &t);

    QString out;

private:
    // A link usually spans several runs: its target is worked out once.
    const QString &targetOf(const QString &link)
    {
        if (link != m_link) {
            m_link = link;
            m_target = target(link);
        }
        return m_target;
    }

    QString m_link;
    QString m_target;
};

QStringView dir(bool rtl)
{
    return rtl ? u"rtl" : u"ltr";
}

QChar mark(bool rtl)
{
    return rtl ? rightToLeftMark : leftToRightMark;
}

void Writer::line(const Line &l)
{
    const bool pre = !l.runs.isEmpty() && std::all_of(l.runs.begin(), l.runs.end(),
                                                      [](const Run &r) { return r.style.pre; });
    const bool quote =
        std::any_of(l.runs.begin(), l.runs.end(), [](const Run &r) { return r.style.quote; });
    out += u"<div dir=\"";
    out += dir(l.rtl);
    out += u"\" style=\"white-space:pre-wrap";
    if (pre)
        out += u";font-family:monospace";
    if (quote)
        out += u";-qt-block-indent:1";
    out += u"\">";
    out += mark(l.rtl);
    runs(l.runs);
    out += u"</div>";
}

void Writer::cell(QStringView tag, const Line &l)
{
    out += u'<';
    out += tag;
    out += u" dir=\"";
    out += dir(l.rtl);
    out += u"\">";
    out += mark(l.rtl);
    runs(l.runs);
    out += u"</";
    out += tag;
    out += u'>';
}

void Writer::table(const Table &t)
{
    out += u"<table dir=\"";
    out += dir(t.rtl);
    out += u"\" border=\"1\" cellspacing=\"0\" cellpadding=\"4\"><tr>";
    for (const Line &c : t.head)
        cell(u"th", c);
    out += u"</tr>";
    for (const QList<Line> &row : t.rows) {
        out += u"<tr>";
        for (const Line &c : row)
            cell(u"td", c);
        out += u"</tr>";
    }
    out += u"</table>";
}

} // namespace

QString write(const QList<Block> &blocks)
{
    Writer writer;
    for (const Block &block : blocks) {
        if (block.kind == Block::Kind::Line)
            writer.line(block.line);
        else
            writer.table(block.table);
    }
    return std::move(writer.out);
}

QString render(const QString &text)
{
    return write(blocks(text));
}

} // namespace Markup::HtmlWriter
