// libFuzzer target for the markup renderer. Beyond crashes and sanitizer findings it aborts
// when the rich text holds a tag the writer does not make or a link that may not be opened,
// when terminal output holds a control character of the message's own, or when a bounded
// scanner finds other matches than the plain regular expression engine.
//
// Build: configure with -DCMAKE_CXX_COMPILER=clang++ -DHALVENMARK_FUZZ=ON, build markupfuzz.
// Run:   markupfuzz -dict=markup.dict -max_len=4096 corpus/ seeds/

#include "chat/markup/ansiwriter.h"
#include "chat/markup/htmlwriter.h"
#include "chat/markup/markup.h"
#include "chat/markup/patterns.h"

#include <QRegularExpression>

#include <cstdio>
#include <cstdlib>

using namespace Markup::Patterns;
using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void fail(const char *what, const QString &detail)
{
    std::fprintf(stderr, "markupfuzz: %s: %s\n", what, detail.toUtf8().constData());
    std::abort();
}

const QRegularExpression &ownTag()
{
    static const QRegularExpression re(
        uR"re(^<(?:/(?:div|b|i|u|s|code|a|table|tr|th|td)|(?:b|i|u|s|code|tr)|(?:div|th|td) dir="(?:ltr|rtl)"(?: style="white-space:pre-wrap(?:;font-family:monospace)?(?:;-qt-block-indent:1)?")?|table dir="(?:ltr|rtl)" border="1" cellspacing="0" cellpadding="4"|a href="(?:https?://|mailto:)[^"<>\s]*")>)re"_s);
    return re;
}

const QRegularExpression &ownSequence()
{
    static const QRegularExpression re(uR"(\x1b\[[0-9;]*m|\x1b\]8;;[!-~]*\x1b\\)"_s);
    return re;
}

void checkHtml(const QString &html)
{
    for (qsizetype at = html.indexOf(u'<'); at >= 0; at = html.indexOf(u'<', at + 1)) {
        if (!ownTag().match(QStringView(html).sliced(at)).hasMatch())
            fail("foreign tag in rich text", html.mid(at, 80));
    }
}

void checkTerminal(QString out)
{
    out.remove(ownSequence());
    for (const QChar c : out) {
        const char16_t u = c.unicode();
        if (u != u'\n' && u != u'\t' && (u < 0x20 || u == 0x7F || (u >= 0x80 && u <= 0x9F)))
            fail("control character reached the terminal", QString::number(u, 16));
    }
}

void same(const char *name, const QList<Span> &found, const QRegularExpression &re,
          const QString &text)
{
    if (found != globalSpans(re, text))
        fail(name, text);
}

void checkScanners(const QString &text)
{
    QList<Span> tagSpans;
    for (const Tag &t : findTags(text))
        tagSpans.append({t.start, t.end});
    same("tags", tagSpans, tags(), text);
    same("bold", findBold(text), bold(), text);
    QList<Span> linkSpans;
    for (const Link &l : findMdLinks(text))
        linkSpans.append({l.start, l.end});
    same("mdLink", linkSpans, mdLink(), text);
    same("bareLink", findBareLinks(text), bareLink(), text);
    for (const qsizetype window : {1, 4, 16, 2048}) {
        same("latin", findLatin(text, window), latin(), text);
        same("hebrew", findHebrew(text, window), hebrew(), text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    for (const Markup::Piece &piece : Markup::pieces(text)) {
        for (const QStringList &row : piece.rows) {
            if (row.size() != piece.head.size())
                fail("table row not as wide as its head", text);
        }
    }
    Markup::attributed(text);
    const QList<Markup::Block> blocks = Markup::blocks(text);
    checkHtml(Markup::HtmlWriter::write(blocks));
    checkTerminal(Markup::AnsiWriter::write(blocks, 1 + int(size % 97), true));
    checkTerminal(Markup::AnsiWriter::write(blocks, 1 + int(size % 89), false));
    Markup::directed(text);
    // Small inputs only: on long ones the plain engine itself gives up (stack limit).
    if (size <= 4096)
        checkScanners(text);
    return 0;
}
