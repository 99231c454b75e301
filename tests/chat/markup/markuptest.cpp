// Message text to styled, directed text: tables, direction, entities, inline styles; the
// expressions underneath; and hostile messages built to make a backtracking renderer freeze.

#include "describe.h"

#include "chat/markup/ansiwriter.h"
#include "chat/markup/htmlwriter.h"
#include "chat/markup/markup.h"
#include "chat/markup/patterns.h"

#include <QRandomGenerator>
#include <QTest>

using namespace Markup;
using namespace Markup::Patterns;
using namespace Qt::StringLiterals;

namespace {

const QString shalom = u"\u05E9\u05DC\u05D5\u05DD"_s; // a Hebrew word
const QString olam = u"\u05E2\u05D5\u05DC\u05DD"_s;   // another

// "plain|bold{b}|link{@https://x}": runs joined by "|", each with its style letters
// (b i u s c p q) and link target in braces.
QString describe(const QList<Markup::Run> &runs)
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

// "start-end start-end": where matches are, for Span, Tag and Link alike.
template <typename List> QString spans(const List &found)
{
    QStringList parts;
    for (const auto &s : found)
        parts.append(u"%1-%2"_s.arg(s.start).arg(s.end));
    return parts.join(u' ');
}

const QHash<QString, const QRegularExpression *> &expressions()
{
    static const QHash<QString, const QRegularExpression *> all{
        {u"tags"_s, &tags()},         {u"bold"_s, &bold()},       {u"mdLink"_s, &mdLink()},
        {u"bareLink"_s, &bareLink()}, {u"escapes"_s, &escapes()}, {u"latin"_s, &latin()},
        {u"hebrew"_s, &hebrew()}};
    return all;
}

// What the bounded scanner of an expression finds.
QString scan(const QString &name, QStringView text, qsizetype window)
{
    if (name == u"tags")
        return spans(findTags(text));
    if (name == u"mdLink")
        return spans(findMdLinks(text));
    if (name == u"bold")
        return spans(findBold(text));
    if (name == u"bareLink")
        return spans(findBareLinks(text));
    return spans(name == u"latin" ? findLatin(text, window) : findHebrew(text, window));
}

// One step of the way from message text to what is shown, in a comparable form; or, for the
// name of an expression, its first match ("-" for none).
QString apply(const QString &step, const QString &text)
{
    QStringList out;
    if (const QRegularExpression *re = expressions().value(step)) {
        const auto m = re->match(text);
        return m.hasMatch() ? m.captured(0) : u"-"_s;
    }
    if (step == u"cells")
        return Markup::cells(text).join(u',');
    if (step == u"delimiter") // text: a head line, then the candidate row
        return Markup::delimiter(text.section(u'\n', 1), cells(text.section(u'\n', 0, 0)).size())
                   ? u"yes"_s
                   : u"no"_s;
    if (step == u"lean") {
        const auto found = Markup::lean(text);
        return found ? (*found ? u"rtl"_s : u"ltr"_s) : u"-"_s;
    }
    if (step == u"directed")
        return visible(Markup::directed(text));
    if (step == u"decoded")
        return Markup::decoded(text);
    if (step == u"attributed")
        return describe(Markup::attributed(text));
    if (step == u"shown")
        return visible(Markup::shown(text));
    if (step == u"columns") // on a terminal
        return QString::number(AnsiWriter::displayWidth(text));
    if (step == u"pieces") {
        for (const Piece &p : Markup::pieces(text)) {
            QStringList rows{p.head.join(u',')};
            for (const QStringList &r : p.rows)
                rows.append(r.join(u','));
            out.append(p.kind == Piece::Kind::Text ? u"T:"_s + p.text : u"G:"_s + rows.join(u';'));
        }
    }
    return out.join(u" / ");
}

void row(const char *step, const char *name, const QString &text, const QString &expected)
{
    QTest::addRow("%s: %s", step, name) << QString::fromLatin1(step) << text << expected;
}

QString alternating(const QString &first, const QString &second, int pairs)
{
    QStringList parts;
    for (int i = 0; i < pairs; ++i)
        parts << first << second;
    return parts.join(u'|');
}

} // namespace

class MarkupTest : public QObject
{
    Q_OBJECT

private slots:
    void steps_data()
    {
        QTest::addColumn<QString>("step");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");

        row("cells", "escaped pipe, empty cell", u"| a \\| b |  | c |"_s, u"a | b,,c"_s);
        row("cells", "escaped last pipe, other escapes kept", u"| x\\_y \\|"_s, u"x\\_y |"_s);

        row("pieces", "table between text", u"intro\n| a | b |\n|:--|--:|\n| 1 | 2 |\noutro"_s,
            u"T:intro / G:a,b;1,2 / T:outro"_s);
        row("pieces", "short and long rows", u"| a | b | c |\n|-|-|-|\n| 1 |\n| 1 | 2 | 3 | 4 |"_s,
            u"G:a,b,c;1,,;1,2,3"_s);
        row("pieces", "no delimiter row", u"| a | b |\n| 1 | 2 |"_s, u"T:| a | b |\n| 1 | 2 |"_s);
        row("pieces", "row ends at other line", u"|a|\n|-|\n|1|\nx\n|2|"_s, u"G:a;1 / T:x\n|2|"_s);
        row("pieces", "inside pre", u"<pre>\n| a |\n|---|\n</pre>"_s,
            u"T:<pre>\n| a |\n|---|\n</pre>"_s);
        row("pieces", "after pre", u"<PRE class=x>code</pre>\n| a |\n|---|"_s,
            u"T:<PRE class=x>code</pre> / G:a"_s);
        row("pieces", "not a pre tag", u"<prefix>\n| a |\n|---|"_s, u"T:<prefix> / G:a"_s);

        row("delimiter", "alignment colons", u"|a|b|c|\n| :-- | :-: | --: |"_s, u"yes"_s);
        row("delimiter", "fewer cells than head", u"|a|b|\n|---|"_s, u"no"_s);
        row("delimiter", "more cells than head", u"|a|b|\n|---|---|---|"_s, u"no"_s);
        row("delimiter", "colon alone", u"|a|\n|:|"_s, u"no"_s);
        row("delimiter", "inner colon", u"|a|\n|-:-|"_s, u"no"_s);
        row("delimiter", "space inside", u"|a|\n|- -|"_s, u"no"_s);

        row("lean", "hebrew first", u"12 "_s + shalom + u" abc"_s, u"rtl"_s);
        row("lean", "latin first", u"abc "_s + shalom, u"ltr"_s);
        row("lean", "cyrillic", u"- \u043F\u0440\u0438\u0432\u0435\u0442"_s, u"ltr"_s);
        row("lean", "presentation form", u"\uFB1D"_s, u"rtl"_s);
        row("lean", "digits, signs, cjk", u"12:30 - 5% \u4E2D\u6587"_s, u"-"_s);

        const QString mixed = shalom + u" "_s + olam + u" hello world"_s;
        row("directed", "tie in a text that begins in Hebrew", shalom + u"\n"_s + mixed,
            u"<RLM>"_s + shalom + u"\n<RLM>"_s + mixed);
        row("directed", "tie in a text that begins in English", u"note\n"_s + mixed,
            u"<LRM>note\n<LRM>"_s + mixed);
        row("directed", "majority wins over the whole text",
            shalom + u"\nhello big world "_s + olam,
            u"<RLM>"_s + shalom + u"\n<LRM>hello big world "_s + olam);
        row("directed", "numbers and punctuation do not count",
            u"a 1 2 3 - "_s + shalom + u" "_s + olam,
            u"<RLM>a 1 2 3 - "_s + shalom + u" "_s + olam);
        row("directed", "no directional words", u"123\n\n--"_s, u"<LRM>123\n<LRM>\n<LRM>--"_s);

        row("decoded", "all five, escaped entity once",
            u"&lt;&gt;&quot;&#39;&amp; &amp;lt; &&lt;"_s, u"<>\"'& &lt; &<"_s);
        row("decoded", "unknown and unterminated", u"&nbsp; &#60; &lt &amp"_s,
            u"&nbsp; &#60; &lt &amp"_s);

        row("attributed", "bold across a line break", u"**a\nb** c"_s, u"a\nb{b}| c"_s);
        row("attributed", "bold around tags", u"**a <i>b</i> c**"_s, u"a {b}|b{bi}| c{b}"_s);
        row("attributed", "tags",
            u"<B class=x>B</b><STRONG>S</STRONG><em>E</em><u>U</u><s>X</s><\u017Ftrong>L"_s,
            u"BS{b}|E{i}|U{u}|X{s}|L{b}"_s);
        row("attributed", "nested and stray tags", u"</b>x<b><b>y</b>z</b>w"_s, u"x|yz{b}|w"_s);
        row("attributed", "markdown links: plain, empty label, label escapes and entities",
            u"see [docs](https://d.x/a_b), [](http://a.b) [a\\_b &amp; c](mailto:x)"_s,
            u"see |docs{@https://d.x/a_b}|, |http://a.b{@http://a.b}| |a_b & c{@mailto:x}"_s);
        row("attributed", "bare link", u"go to https://x.y/p?a=1&amp;b=2 now"_s,
            u"go to |https://x.y/p?a=1&b=2{@https://x.y/p?a=1&b=2}| now"_s);
        row("attributed", "anchor with encoded javascript",
            u"<a href=\"&#106;avascript:x\">x</a>"_s, u"x"_s);
        row("attributed", "anchor keeps its target over inner links",
            u"<A target=_blank href=\"http://a\">[b](http://c) http://d</a>"_s,
            u"[b](http://c) http://d{@http://a}"_s);
        row("attributed", "escapes", u"\\[not\\](a link) \\_x\\_ \\\\ \\*"_s,
            u"[not](a link) _x_ \\ \\*"_s);
        row("attributed", "code is literal", u"<code>**x** \\_ [a](http://b) &lt;</code>"_s,
            u"**x** \\_ [a](http://b) <{c}"_s);
        row("attributed", "pre on lines of its own", u"a\n<pre>\r\nx\n\ny\n</pre>\nb"_s,
            u"a\n|x\n\ny{p}|\nb"_s);
        row("attributed", "bold does not pair into code", u"a ** b <code>**</code> c"_s,
            u"a ** b |**{c}| c"_s);
        row("attributed", "bold spans code", u"**a <code>x</code> b**"_s, u"a {b}|x{bc}| b{b}"_s);
        row("attributed", "unpaired surrogates",
            u"**a"_s + QChar(0xD800) + u"b** [x](http://y) \\("_s + QChar(0xDC00),
            u"a\uFFFDb{b}| |x{@http://y}| (\uFFFD"_s);

        row("shown", "path keeps its order in a Hebrew line", shalom + u" /usr/local/bin "_s + olam,
            u"<RLM>"_s + shalom + u" <LRI>/usr/local/bin<PDI> "_s + olam);
        row("shown", "tie decided by the displayed text",
            u"<b>"_s + shalom + u"</b>\n"_s + shalom + u" "_s + olam + u" a b"_s,
            u"<RLM>"_s + shalom + u"\n<RLM>"_s + shalom + u" "_s + olam + u" <LRI>a b<PDI>"_s);
        row("shown", "Hebrew phrase in an English line",
            u"say \""_s + shalom + u" "_s + olam + u"!\" twice"_s,
            u"<LRM>say \"<RLI>"_s + shalom + u" "_s + olam + u"!<PDI>\" twice"_s);
        row("shown", "isolate across styles", shalom + u" <b>/usr/</b>local "_s + olam,
            u"<RLM>"_s + shalom + u" <LRI>/usr/local<PDI> "_s + olam);
        row("shown", "line ends", u"a\r\nb\r\n\r\n\n"_s, u"<LRM>a\n<LRM>b"_s);
        row("shown", "table rows", u"| "_s + shalom + u" | b |\n|---|---|\n| 1 |"_s,
            u"<RLM>"_s + shalom + u" | b\n<RLM>1 | "_s);
        row("shown", "controls made visible", u"a\x1b[2Jb\x07"_s, u"<LRM>a\u241B[2Jb\u2407"_s);

        row("columns", "hebrew points, combining accent", u"\u05E9\u05B8\u05C1e\u0301"_s, u"2"_s);
        row("columns", "direction marks", u"\u200E\u200F\u2066\u2069"_s, u"0"_s);
        row("columns", "cjk and emoji", u"\u4E2D\u6587\U0001F600"_s, u"6"_s);

        // Where PCRE2's defaults differ from what the markup means: \s is the Unicode
        // White_Space set, \b after a tag name is not found before a letter of any script, a
        // mark or a format character, caseless matching folds long s, "." in bold crosses
        // every line break.
        const QString none = u"-"_s;
        row("tags", "long s", u"<\u017Ftrong>"_s, u"<\u017Ftrong>"_s);
        row("tags", "dotted capital I", u"<\u0130>"_s, none);
        row("tags", "then hebrew letter", u"<b\u05D0>"_s, none);
        row("tags", "then combining mark", u"<b\u0301>"_s, none);
        row("tags", "then direction mark", u"<b\u200F>"_s, none);
        row("tags", "then arabic digit", u"<b\u0663>"_s, none);
        row("tags", "then superscript two", u"<b\u00B2>"_s, u"<b\u00B2>"_s);
        row("tags", "then hyphen", u"<b-x>"_s, u"<b-x>"_s);
        row("tags", "longer name", u"<span>"_s, none);
        row("tags", "across lines", u"<pre\nclass=x>"_s, u"<pre\nclass=x>"_s);
        row("tags", "anchor after no-break space", u"<a\u00A0href=\"u\">"_s,
            u"<a\u00A0href=\"u\">"_s);
        row("tags", "anchor after mongolian separator", u"<a\u180Ehref=\"u\">"_s, none);
        row("tags", "anchor value holds >", u"<a href=\"x>y\">"_s, u"<a href=\"x>y\">"_s);
        row("bold", "across line separator", u"**a\u2028b**"_s, u"**a\u2028b**"_s);
        row("bold", "across carriage return", u"**a\rb**"_s, u"**a\rb**"_s);
        row("bold", "needs a character", u"****"_s, none);
        row("mdLink", "upper case scheme", u"[x](HTTP://a)"_s, none);
        row("mdLink", "label across lines", u"[a\nb](http://x)"_s, none);
        row("mdLink", "target with no-break space", u"[x](http://a\u00A0b)"_s, none);
        row("bareLink", "stops at line separator", u"http://a\u2028b"_s, u"http://a"_s);
        row("bareLink", "keeps mongolian separator", u"http://a\u180Eb"_s, u"http://a\u180Eb"_s);
        row("bareLink", "stops at quote", u"http://a'b"_s, u"http://a"_s);
        row("latin", "accented", u"\u00C0bc\u024F"_s, u"\u00C0bc\u024F"_s);
        row("latin", "beyond range", u"\u0250"_s, none);
        row("latin", "no-break space joins", u"ab\u00A0cd"_s, u"ab\u00A0cd"_s);
        row("latin", "thin space splits", u"ab\u2009cd"_s, u"ab"_s);
        row("latin", "marks before a quote", u"(Really?!\u201D"_s, u"Really?!"_s);
        row("latin", "marks without a quote", u"Really?! x"_s, u"Really"_s);
        row("latin", "trailing dot", u"end."_s, u"end"_s);
        row("hebrew", "presentation forms", u"\uFB1D\uFDFF \uFE70\uFEFF"_s,
            u"\uFB1D\uFDFF \uFE70\uFEFF"_s);
        row("hebrew", "inner punctuation", u"\u05D0-\u05D1,\u05D2"_s, u"\u05D0-\u05D1,\u05D2"_s);
        row("hebrew", "ellipsis before quote", u"\u05D0\u2026\""_s, u"\u05D0\u2026"_s);
        row("hebrew", "number", u"\u05D0 12:30 x"_s, u"\u05D0 12:30"_s);

        // Hostile messages, each sized so that work growing with the square of its length
        // would take many seconds; only the result is checked (timings are in bench/markup).
        const int n = 50000;
        row("attributed", "unclosed brackets before a link-like tail",
            u"["_s.repeated(n) + u"](http://x y)"_s,
            u"["_s.repeated(n) + u"](|http://x{@http://x}| y)"_s);
        row("attributed", "one label over the whole text",
            u"["_s + u"x ["_s.repeated(n) + u"](https://a.b)"_s,
            u"x ["_s.repeated(n) + u"{@https://a.b}"_s);
        row("attributed", "targets without a closing parenthesis", u"[a](http://x"_s.repeated(n),
            u"[a](|"_s + alternating(u"http://x[a{@http://x[a}"_s, u"]("_s, n - 1) +
                u"|http://x{@http://x}"_s);
        row("attributed", "many links", u"[a](http://b) "_s.repeated(n / 4),
            alternating(u"a{@http://b}"_s, u" "_s, n / 4));
        row("attributed", "unclosed anchors before one >", u"<a "_s.repeated(n) + u">"_s,
            u"<a "_s.repeated(n) + u">"_s);
        row("attributed", "unclosed anchors before an href",
            u"<a "_s.repeated(n) + u"x> href=\"y\">"_s, u"<a "_s.repeated(n) + u"x> href=\"y\">"_s);
        row("attributed", "unclosed href value", u"<a href=\"x "_s.repeated(n),
            u"<a href=\"x "_s.repeated(n));
        row("attributed", "one tag over many openers", u"<b"_s.repeated(n) + u">x"_s, u"x{b}"_s);
        row("attributed", "deep nesting",
            u"<b>"_s.repeated(n) + u"x"_s + u"</b>"_s.repeated(n) + u"y"_s, u"x{b}|y"_s);
        row("attributed", "deep anchors", u"<a href=\"http://a\">"_s.repeated(n / 2) + u"x"_s,
            u"x{@http://a}"_s);
        row("attributed", "unpaired emphasis", u"**"_s + u"a*"_s.repeated(n),
            u"**"_s + u"a*"_s.repeated(n));
        row("attributed", "emphasis pairs", u"**a "_s.repeated(n),
            alternating(u"a {b}"_s, u"a "_s, n / 2));
        row("attributed", "emphasis over a long span", u"**"_s + u"ab\n"_s.repeated(n) + u"**"_s,
            u"ab\n"_s.repeated(n) + u"{b}"_s);
        row("attributed", "backslashes", u"\\"_s.repeated(2 * n + 1), u"\\"_s.repeated(n + 1));
        row("attributed", "entities", u"&amp;lt;"_s.repeated(n), u"&lt;"_s.repeated(n));
        row("attributed", "bare links", u"http://a "_s.repeated(n / 2),
            alternating(u"http://a{@http://a}"_s, u" "_s, n / 2));

        // Lines of tens of thousands of words are one run, although the engine alone would run
        // out of stack long before their end.
        const int w = 30000;
        const QString english = u"path/x, v1.2\u00A0"_s.repeated(w / 2) + u"end"_s;
        row("shown", "endless English run in a Hebrew line",
            (shalom + u" "_s).repeated(w + 2) + english,
            u"<RLM>"_s + (shalom + u" "_s).repeated(w + 2) + u"<LRI>"_s + english + u"<PDI>"_s);
        const QString hebrew = (shalom + u"; 12 "_s).repeated(w / 2 - 1) + shalom;
        row("shown", "endless Hebrew run in an English line", u"word "_s.repeated(w + 1) + hebrew,
            u"<LRM>"_s + u"word "_s.repeated(w + 1) + u"<RLI>"_s + hebrew + u"<PDI>"_s);
        row("shown", "one endless word", shalom + u" "_s + u"a/"_s.repeated(5 * w) + u"b"_s,
            u"<RLM>"_s + shalom + u" <LRI>"_s + u"a/"_s.repeated(5 * w) + u"b<PDI>"_s);
        row("shown", "short runs before a long stretch",
            (shalom + u" "_s + shalom + u" a "_s).repeated(1000) + u"/"_s +
                u"x"_s.repeated(1000000),
            u"<RLM>"_s + (shalom + u" "_s + shalom + u" <LRI>a<PDI> "_s).repeated(999) + shalom +
                u" "_s + shalom + u" <LRI>a /"_s + u"x"_s.repeated(1000000) + u"<PDI>"_s);
        row("shown", "pipes", u"|"_s.repeated(5 * w), u"<LRM>"_s + u"|"_s.repeated(5 * w));
        row("shown", "long table",
            u"| a | b |\n|---|---|\n"_s + u"| x | [y](http://y) |\n"_s.repeated(20000),
            u"<LRM>a | b"_s + u"\n<LRM>x | y"_s.repeated(20000));
    }

    void steps()
    {
        QFETCH(QString, step);
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(apply(step, text), expected);
    }

    // The bounded scanners against the plain global match on random text built from the
    // tokens that matter to each expression, with tiny windows for the runs of words so that
    // every cut and resumption is exercised.
    void bounded_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QStringList>("tokens");
        auto row = [](const char *name, const QString &tokens) {
            QTest::newRow(name) << QString::fromLatin1(name) << tokens.split(u'|');
        };
        row("tags",
            u"<|>|/|a|A|b|s|pre|strong| |\n|href=\"|\"|x|=|\u0301|\u00B2|\u017F|<a |</a>|<b>"_s);
        row("bold", u"*|**|a| |\n|\u2028"_s);
        row("mdLink", u"[|]|(|)|](|http://|https://|mailto:|x| |\n|\u00A0"_s);
        row("bareLink", u"http|http://|https://|x| |<|\"|)|]|\u00A0|/"_s);
        row("latin",
            u"a|Z|\u00C0|\u0250|/|~|@|1|.|,|;|:| | |\u00A0|?|!|\"|\u201D|)|-|_|\t|\u05D0|\n"_s);
        row("hebrew",
            u"\u05D0|\u05E9|\uFB1D|\uFE70|x|1|.|,|;| | |\u00A0|\u2026|?|!|\"|)|]|\t|\u2028"_s);
    }

    void bounded()
    {
        QFETCH(QString, pattern);
        QFETCH(QStringList, tokens);
        QRandomGenerator random(20240611);
        const bool runs = pattern == u"latin" || pattern == u"hebrew";
        const QList<qsizetype> windows =
            runs ? QList<qsizetype>{1, 2, 3, 5, 8, 13, runWindow} : QList<qsizetype>{runWindow};
        for (int i = 0; i < 3000; ++i) {
            QString text;
            for (int count = random.bounded(60); count > 0; --count)
                text += tokens[random.bounded(int(tokens.size()))];
            const QString expected = spans(globalSpans(*expressions().value(pattern), text));
            for (const qsizetype window : windows) {
                const QString found = scan(pattern, text, window);
                QVERIFY2(
                    found == expected,
                    qPrintable(u"window %1, text %2: %3 instead of %4"_s.arg(window).arg(
                        QString::fromLatin1(text.toUtf8().toPercentEncoding()), found, expected)));
            }
        }
    }

    // Tables too big to draw quickly with work that grows with their square.
    void bigTables()
    {
        QVERIFY(HtmlWriter::render(u"| a |\n|---|\n"_s + u"| x |\n"_s.repeated(20000))
                    .endsWith(u"</table>"));
        const int columns = 20000;
        const QStringList lines = AnsiWriter::render(u"|"_s + u"a|"_s.repeated(columns) + u"\n|"_s +
                                                         u"-|"_s.repeated(columns),
                                                     80, false)
                                      .split(u'\n');
        QCOMPARE(lines.size(), 3);
        QCOMPARE(AnsiWriter::displayWidth(lines[1]), 4 * columns + 1);
    }
};

QTEST_GUILESS_MAIN(MarkupTest)
#include "markuptest.moc"
