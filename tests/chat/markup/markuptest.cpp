// Message text to styled, directed text: tables, direction, entities, inline styles.

#include "describe.h"

#include "chat/markup/markup.h"

#include <QTest>

using namespace Markup;
using namespace Qt::StringLiterals;

namespace {

const QString shalom = u"\u05E9\u05DC\u05D5\u05DD"_s; // a Hebrew word
const QString olam = u"\u05E2\u05D5\u05DC\u05DD"_s;   // another

QString describePieces(const QList<Piece> &pieces)
{
    QStringList out;
    for (const Piece &p : pieces) {
        if (p.kind == Piece::Kind::Text) {
            out.append(u"T:"_s + p.text);
            continue;
        }
        QStringList rows{p.head.join(u',')};
        for (const QStringList &r : p.rows)
            rows.append(r.join(u','));
        out.append(u"G:"_s + rows.join(u';'));
    }
    return out.join(u" / ");
}

// One step of the way from message text to what is shown, in a comparable form.
QString apply(const QString &step, const QString &text)
{
    if (step == u"cells")
        return Markup::cells(text).join(u',');
    if (step == u"pieces")
        return describePieces(Markup::pieces(text));
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
    return u"no step "_s + step;
}

void row(const char *step, const char *name, const QString &text, const QString &expected)
{
    QTest::addRow("%s: %s", step, name) << QString::fromLatin1(step) << text << expected;
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

        row("cells", "framed", u"| a | b |"_s, u"a,b"_s);
        row("cells", "empty cell", u"| a |  |"_s, u"a,"_s);
        row("cells", "escaped pipe", u"| a \\| b | c |"_s, u"a | b,c"_s);
        row("cells", "escaped last pipe", u"| x \\|"_s, u"x |"_s);
        row("cells", "other escapes kept", u"| a\\_b |"_s, u"a\\_b"_s);

        row("pieces", "table between text", u"intro\n| a | b |\n|---|---|\n| 1 | 2 |\noutro"_s,
            u"T:intro / G:a,b;1,2 / T:outro"_s);
        row("pieces", "short and long rows", u"| a | b | c |\n|-|-|-|\n| 1 |\n| 1 | 2 | 3 | 4 |"_s,
            u"G:a,b,c;1,,;1,2,3"_s);
        row("pieces", "no delimiter row", u"| a | b |\n| 1 | 2 |"_s, u"T:| a | b |\n| 1 | 2 |"_s);
        row("pieces", "delimiter of another width", u"| a | b |\n|---|\n| 1 | 2 |"_s,
            u"T:| a | b |\n|---|\n| 1 | 2 |"_s);
        row("pieces", "inside pre", u"<pre>\n| a | b |\n|---|---|\n</pre>"_s,
            u"T:<pre>\n| a | b |\n|---|---|\n</pre>"_s);
        row("pieces", "after pre", u"<PRE class=x>code</pre>\n| a |\n|---|"_s,
            u"T:<PRE class=x>code</pre> / G:a"_s);
        row("pieces", "pre opened in head", u"| <pre> a |\n|---|\n| 1 |"_s,
            u"T:| <pre> a |\n|---|\n| 1 |"_s);
        row("pieces", "not a pre tag", u"<prefix>\n| a |\n|---|"_s, u"T:<prefix> / G:a"_s);
        row("pieces", "row ends at other line", u"|a|\n|-|\n|1|\nx\n|2|"_s, u"G:a;1 / T:x\n|2|"_s);
        row("pieces", "empty", QString(), QString());

        row("lean", "hebrew first", u"12 "_s + shalom + u" abc"_s, u"rtl"_s);
        row("lean", "latin first", u"abc "_s + shalom, u"ltr"_s);
        row("lean", "cyrillic", u"- \u043F\u0440\u0438\u0432\u0435\u0442"_s, u"ltr"_s);
        row("lean", "presentation form", u"\uFB1D"_s, u"rtl"_s);
        row("lean", "digits and signs", u"12:30 - 5%"_s, u"-"_s);
        row("lean", "cjk", u"\u4E2D\u6587"_s, u"-"_s);

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
        row("directed", "empty", QString(), u"<LRM>"_s);

        row("decoded", "all five", u"&lt;&gt;&quot;&#39;&amp;"_s, u"<>\"'&"_s);
        row("decoded", "escaped entity decodes once", u"&amp;lt;"_s, u"&lt;"_s);
        row("decoded", "ampersand before entity", u"&&lt;"_s, u"&<"_s);
        row("decoded", "unknown entity", u"&nbsp; &#60;"_s, u"&nbsp; &#60;"_s);
        row("decoded", "unterminated", u"&lt &amp"_s, u"&lt &amp"_s);

        row("attributed", "bold across a line break", u"**a\nb** c"_s, u"a\nb{b}| c"_s);
        row("attributed", "bold around tags", u"**a <i>b</i> c**"_s, u"a {b}|b{bi}| c{b}"_s);
        row("attributed", "unclosed bold", u"**a b"_s, u"**a b"_s);
        row("attributed", "tags", u"<b>B</b><STRONG>S</STRONG><em>E</em><u>U</u><s>X</s>"_s,
            u"BS{b}|E{i}|U{u}|X{s}"_s);
        row("attributed", "nested same tag", u"<b><b>x</b>y</b>z"_s, u"xy{b}|z"_s);
        row("attributed", "stray closing tag", u"</b>x<b>y"_s, u"x|y{b}"_s);
        row("attributed", "markdown link", u"see [docs](https://d.x/a_b) now"_s,
            u"see |docs{@https://d.x/a_b}| now"_s);
        row("attributed", "empty label shows the target", u"[](http://a.b)"_s,
            u"http://a.b{@http://a.b}"_s);
        row("attributed", "label escapes and entities", u"[a\\_b &amp; c](http://x)"_s,
            u"a_b & c{@http://x}"_s);
        row("attributed", "bare link", u"go to https://x.y/p?a=1&amp;b=2 now"_s,
            u"go to |https://x.y/p?a=1&b=2{@https://x.y/p?a=1&b=2}| now"_s);
        row("attributed", "anchor with encoded javascript",
            u"<a href=\"&#106;avascript:x\">x</a>"_s, u"x"_s);
        row("attributed", "anchor keeps its target over inner links",
            u"<a href=\"http://a\">[b](http://c) http://d</a>"_s,
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

        row("shown", "path keeps its order in a Hebrew line", shalom + u" /usr/local/bin "_s + olam,
            u"<RLM>"_s + shalom + u" <LRI>/usr/local/bin<PDI> "_s + olam);
        row("shown", "English phrase with a number", shalom + u" (iOS 17.2, build 5) "_s + olam,
            u"<RLM>"_s + shalom + u" (<LRI>iOS 17.2, build 5<PDI>) "_s + olam);
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
    }

    void steps()
    {
        QFETCH(QString, step);
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(apply(step, text), expected);
    }

    void delimiter_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<int>("count");
        QTest::addColumn<bool>("expected");
        QTest::newRow("alignment colons") << u"| :-- | :-: | --: |"_s << 3 << true;
        QTest::newRow("one dash") << u"|-|"_s << 1 << true;
        QTest::newRow("fewer cells than head") << u"|---|"_s << 2 << false;
        QTest::newRow("more cells than head") << u"|---|---|---|"_s << 2 << false;
        QTest::newRow("colon alone") << u"|:|"_s << 1 << false;
        QTest::newRow("inner colon") << u"|-:-|"_s << 1 << false;
        QTest::newRow("space inside") << u"|- -|"_s << 1 << false;
        QTest::newRow("empty cell") << u"|---||"_s << 2 << false;
    }

    void delimiter()
    {
        QFETCH(QString, line);
        QFETCH(int, count);
        QFETCH(bool, expected);
        QCOMPARE(Markup::delimiter(line, count), expected);
    }

    void blockDirections()
    {
        const QList<Block> found =
            Markup::blocks(shalom + u"\nhello\n"_s + u"| a | "_s + shalom + u" |\n|-|-|"_s);
        QCOMPARE(found.size(), 3);
        QVERIFY(found[0].line.rtl);
        QVERIFY(!found[1].line.rtl);
        QCOMPARE(found[2].kind, Block::Kind::Table);
        QVERIFY(!found[2].table.head[0].rtl);
        QVERIFY(found[2].table.head[1].rtl);
        // One word each way: the whole message began in Hebrew.
        QVERIFY(found[2].table.rtl);
    }
};

QTEST_GUILESS_MAIN(MarkupTest)
#include "markuptest.moc"
