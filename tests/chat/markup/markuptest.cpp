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

} // namespace

class MarkupTest : public QObject
{
    Q_OBJECT

private slots:
    void cells_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("framed") << u"| a | b |"_s << QStringList{u"a"_s, u"b"_s};
        QTest::newRow("open end") << u"|a|b"_s << QStringList{u"a"_s, u"b"_s};
        QTest::newRow("padded line") << u"  | a |b  |  "_s << QStringList{u"a"_s, u"b"_s};
        QTest::newRow("empty cell") << u"| a |  |"_s << QStringList{u"a"_s, u""_s};
        QTest::newRow("escaped pipe") << u"| a \\| b | c |"_s << QStringList{u"a | b"_s, u"c"_s};
        QTest::newRow("escaped last pipe") << u"| x \\|"_s << QStringList{u"x |"_s};
        QTest::newRow("other escapes kept") << u"| a\\_b |"_s << QStringList{u"a\\_b"_s};
        QTest::newRow("bare bar") << u"|"_s << QStringList{u""_s};
    }

    void cells()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, expected);
        QCOMPARE(Markup::cells(line), expected);
    }

    void delimiter_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<int>("count");
        QTest::addColumn<bool>("expected");
        QTest::newRow("dashes") << u"|---|---|"_s << 2 << true;
        QTest::newRow("alignment colons") << u"| :-- | :-: | --: |"_s << 3 << true;
        QTest::newRow("one dash") << u"|-|"_s << 1 << true;
        QTest::newRow("fewer cells than head") << u"|---|"_s << 2 << false;
        QTest::newRow("more cells than head") << u"|---|---|---|"_s << 2 << false;
        QTest::newRow("colon alone") << u"|:|"_s << 1 << false;
        QTest::newRow("two colons") << u"|::|"_s << 1 << false;
        QTest::newRow("inner colon") << u"|-:-|"_s << 1 << false;
        QTest::newRow("space inside") << u"|- -|"_s << 1 << false;
        QTest::newRow("letters") << u"|--x|"_s << 1 << false;
        QTest::newRow("empty cell") << u"|---||"_s << 2 << false;
    }

    void delimiter()
    {
        QFETCH(QString, line);
        QFETCH(int, count);
        QFETCH(bool, expected);
        QCOMPARE(Markup::delimiter(line, count), expected);
    }

    void pieces_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("text only") << u"a\nb"_s << u"T:a\nb"_s;
        QTest::newRow("table between text") << u"intro\n| a | b |\n|---|---|\n| 1 | 2 |\noutro"_s
                                            << u"T:intro / G:a,b;1,2 / T:outro"_s;
        QTest::newRow("short and long rows")
            << u"| a | b | c |\n|-|-|-|\n| 1 |\n| 1 | 2 | 3 | 4 |"_s << u"G:a,b,c;1,,;1,2,3"_s;
        QTest::newRow("head only") << u"| a |\n|---|"_s << u"G:a"_s;
        QTest::newRow("no delimiter row")
            << u"| a | b |\n| 1 | 2 |"_s << u"T:| a | b |\n| 1 | 2 |"_s;
        QTest::newRow("delimiter of another width")
            << u"| a | b |\n|---|\n| 1 | 2 |"_s << u"T:| a | b |\n|---|\n| 1 | 2 |"_s;
        QTest::newRow("inside pre") << u"<pre>\n| a | b |\n|---|---|\n</pre>"_s
                                    << u"T:<pre>\n| a | b |\n|---|---|\n</pre>"_s;
        QTest::newRow("after pre")
            << u"<PRE class=x>code</pre>\n| a |\n|---|"_s << u"T:<PRE class=x>code</pre> / G:a"_s;
        QTest::newRow("pre opened in head")
            << u"| <pre> a |\n|---|\n| 1 |"_s << u"T:| <pre> a |\n|---|\n| 1 |"_s;
        QTest::newRow("not a pre tag") << u"<prefix>\n| a |\n|---|"_s << u"T:<prefix> / G:a"_s;
        QTest::newRow("two tables") << u"|a|\n|-|\n\n|b|\n|-|"_s << u"G:a / T: / G:b"_s;
        QTest::newRow("row ends at other line")
            << u"|a|\n|-|\n|1|\nx\n|2|"_s << u"G:a;1 / T:x\n|2|"_s;
        QTest::newRow("empty") << QString() << QString();
    }

    void pieces()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(describePieces(Markup::pieces(text)), expected);
    }

    void lean_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("expected"); // 1 right to left, 0 left to right, -1 none
        QTest::newRow("hebrew first") << u"12 "_s + shalom + u" abc"_s << 1;
        QTest::newRow("latin first") << u"abc "_s + shalom << 0;
        QTest::newRow("cyrillic") << u"- \u043F\u0440\u0438\u0432\u0435\u0442"_s << 0;
        QTest::newRow("greek") << u"\u03B1"_s << 0;
        QTest::newRow("accented latin") << u"\u00E9"_s << 0;
        QTest::newRow("arabic") << u"\u0627"_s << 1;
        QTest::newRow("presentation form") << u"\uFB1D"_s << 1;
        QTest::newRow("digits and signs") << u"12:30 - 5%"_s << -1;
        QTest::newRow("marks only") << u"\u200F\u2066"_s << -1;
        QTest::newRow("cjk") << u"\u4E2D\u6587"_s << -1;
    }

    void lean()
    {
        QFETCH(QString, text);
        QFETCH(int, expected);
        const auto found = Markup::lean(text);
        QCOMPARE(found ? int(*found) : -1, expected);
    }

    void directed_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        const QString mixed = shalom + u" "_s + olam + u" hello world"_s;
        QTest::newRow("tie in a text that begins in Hebrew")
            << shalom + u"\n"_s + mixed << u"<RLM>"_s + shalom + u"\n<RLM>"_s + mixed;
        QTest::newRow("tie in a text that begins in English")
            << u"note\n"_s + mixed << u"<LRM>note\n<LRM>"_s + mixed;
        QTest::newRow("majority wins over the whole text")
            << shalom + u"\nhello big world "_s + olam
            << u"<RLM>"_s + shalom + u"\n<LRM>hello big world "_s + olam;
        QTest::newRow("numbers and punctuation do not count")
            << u"a 1 2 3 - "_s + shalom + u" "_s + olam
            << u"<RLM>a 1 2 3 - "_s + shalom + u" "_s + olam;
        QTest::newRow("word leans by its first letter")
            << u"x"_s + shalom + u" y"_s + olam + u" "_s + olam
            << u"<LRM>x"_s + shalom + u" y"_s + olam + u" "_s + olam;
        QTest::newRow("no directional words") << u"123\n\n--"_s << u"<LRM>123\n<LRM>\n<LRM>--"_s;
        QTest::newRow("empty") << QString() << u"<LRM>"_s;
    }

    void directed()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(visible(Markup::directed(text)), expected);
    }

    void decoded_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("all five") << u"&lt;&gt;&quot;&#39;&amp;"_s << u"<>\"'&"_s;
        QTest::newRow("escaped entity decodes once") << u"&amp;lt;"_s << u"&lt;"_s;
        QTest::newRow("double escaped") << u"&amp;amp;"_s << u"&amp;"_s;
        QTest::newRow("ampersand before entity") << u"&&lt;"_s << u"&<"_s;
        QTest::newRow("unknown entity") << u"&nbsp; &#60;"_s << u"&nbsp; &#60;"_s;
        QTest::newRow("unterminated") << u"&lt &amp"_s << u"&lt &amp"_s;
    }

    void decoded()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(Markup::decoded(text), expected);
    }

    void isolate_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("rtl");
        QTest::addColumn<QString>("expected");
        QTest::newRow("path in a Hebrew line") << shalom + u" /usr/local/bin "_s + olam << true
                                               << shalom + u" <LRI>/usr/local/bin<PDI> "_s + olam;
        QTest::newRow("English phrase with a number")
            << shalom + u" (iOS 17.2, build 5) "_s + olam << true
            << shalom + u" (<LRI>iOS 17.2, build 5<PDI>) "_s + olam;
        QTest::newRow("Hebrew phrase in an English line")
            << u"say \""_s + shalom + u" "_s + olam + u"!\" twice"_s << false
            << u"say \"<RLI>"_s + shalom + u" "_s + olam + u"!<PDI>\" twice"_s;
        QTest::newRow("same direction untouched") << u"plain words"_s << false << u"plain words"_s;
        QTest::newRow("nothing of the other script")
            << shalom + u" 42"_s << true << shalom + u" 42"_s;
    }

    void isolate()
    {
        QFETCH(QString, line);
        QFETCH(bool, rtl);
        QFETCH(QString, expected);
        QCOMPARE(visible(Markup::isolate(line, rtl)), expected);
    }

    void attributed_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("bold across a line break") << u"**a\nb** c"_s << u"a\nb{b}| c"_s;
        QTest::newRow("bold around tags") << u"**a <i>b</i> c**"_s << u"a {b}|b{bi}| c{b}"_s;
        QTest::newRow("unclosed bold") << u"**a b"_s << u"**a b"_s;
        QTest::newRow("tags") << u"<b>B</b><STRONG>S</STRONG><em>E</em><u>U</u><s>X</s>"_s
                              << u"BS{b}|E{i}|U{u}|X{s}"_s;
        QTest::newRow("nested same tag") << u"<b><b>x</b>y</b>z"_s << u"xy{b}|z"_s;
        QTest::newRow("stray closing tag") << u"</b>x<b>y"_s << u"x|y{b}"_s;
        QTest::newRow("quote") << u"<blockquote>q</blockquote>"_s << u"q{q}"_s;
        QTest::newRow("markdown link")
            << u"see [docs](https://d.x/a_b) now"_s << u"see |docs{@https://d.x/a_b}| now"_s;
        QTest::newRow("mailto link") << u"[me](mailto:a@b.c)"_s << u"me{@mailto:a@b.c}"_s;
        QTest::newRow("javascript link is text")
            << u"[x](javascript:alert(1))"_s << u"[x](javascript:alert(1))"_s;
        QTest::newRow("data link is text")
            << u"[x](data:text/html,hi)"_s << u"[x](data:text/html,hi)"_s;
        QTest::newRow("empty label shows the target")
            << u"[](http://a.b)"_s << u"http://a.b{@http://a.b}"_s;
        QTest::newRow("label escapes and entities")
            << u"[a\\_b &amp; c](http://x)"_s << u"a_b & c{@http://x}"_s;
        QTest::newRow("bare link")
            << u"go to https://x.y/p?a=1&amp;b=2 now"_s
            << u"go to |https://x.y/p?a=1&b=2{@https://x.y/p?a=1&b=2}| now"_s;
        QTest::newRow("bare link in parentheses")
            << u"(http://x.y)"_s << u"(|http://x.y{@http://x.y}|)"_s;
        QTest::newRow("anchor") << u"<a href=\"https://h.x\">here</a>."_s
                                << u"here{@https://h.x}|."_s;
        QTest::newRow("anchor with javascript")
            << u"<a href=\"javascript:alert(1)\">x</a>"_s << u"x"_s;
        QTest::newRow("anchor with encoded javascript")
            << u"<a href=\"&#106;avascript:x\">x</a>"_s << u"x"_s;
        QTest::newRow("anchor keeps its target over inner links")
            << u"<a href=\"http://a\">[b](http://c) http://d</a>"_s
            << u"[b](http://c) http://d{@http://a}"_s;
        QTest::newRow("escapes") << u"\\[not\\](a link) \\_x\\_ \\\\ \\*"_s
                                 << u"[not](a link) _x_ \\ \\*"_s;
        QTest::newRow("escaped entity is text") << u"&lt;b&gt;x&lt;/b&gt;"_s << u"<b>x</b>"_s;
        QTest::newRow("code is literal")
            << u"<code>**x** \\_ [a](http://b) &lt;</code>"_s << u"**x** \\_ [a](http://b) <{c}"_s;
        QTest::newRow("pre is literal")
            << u"<pre>def f(**kw):\n    g(**kw)</pre>"_s << u"def f(**kw):\n    g(**kw){p}"_s;
        QTest::newRow("pre on lines of its own")
            << u"a\n<pre>\r\nx\n\ny\n</pre>\nb"_s << u"a\n|x\n\ny{p}|\nb"_s;
        QTest::newRow("pre keeps other line breaks") << u"<pre>\n\nx\n\n</pre>"_s << u"\nx\n{p}"_s;
        QTest::newRow("bold does not pair into code")
            << u"a ** b <code>**</code> c"_s << u"a ** b |**{c}| c"_s;
        QTest::newRow("bold spans code") << u"**a <code>x</code> b**"_s << u"a {b}|x{bc}| b{b}"_s;
        QTest::newRow("unknown tags are text")
            << u"<img src=x onerror=alert(1)><br>"_s << u"<img src=x onerror=alert(1)><br>"_s;
        QTest::newRow("tag name followed by a mark") << u"<b\u0301>x"_s << u"<b\u0301>x"_s;
    }

    void attributed()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(describe(Markup::attributed(text)), expected);
    }

    void shown_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("path keeps its order in a Hebrew line")
            << shalom + u" /usr/local/bin "_s + olam
            << u"<RLM>"_s + shalom + u" <LRI>/usr/local/bin<PDI> "_s + olam;
        QTest::newRow("tie decided by the displayed text")
            << u"<b>"_s + shalom + u"</b>\n"_s + shalom + u" "_s + olam + u" a b"_s
            << u"<RLM>"_s + shalom + u"\n<RLM>"_s + shalom + u" "_s + olam + u" <LRI>a b<PDI>"_s;
        QTest::newRow("Hebrew in an English line")
            << u"The word "_s + shalom + u" means peace"_s
            << u"<LRM>The word <RLI>"_s + shalom + u"<PDI> means peace"_s;
        QTest::newRow("isolate across styles")
            << shalom + u" <b>/usr/</b>local "_s + olam
            << u"<RLM>"_s + shalom + u" <LRI>/usr/local<PDI> "_s + olam;
        QTest::newRow("line ends") << u"a\r\nb\r\n\r\n\n"_s << u"<LRM>a\n<LRM>b"_s;
        QTest::newRow("table rows") << u"| "_s + shalom + u" | b |\n|---|---|\n| 1 |"_s
                                    << u"<RLM>"_s + shalom + u" | b\n<RLM>1 | "_s;
        QTest::newRow("controls made visible") << u"a\x1b[2Jb\x07"_s << u"<LRM>a\u241B[2Jb\u2407"_s;
    }

    void shown()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(visible(Markup::shown(text)), expected);
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
