// Messages built to make a backtracking renderer freeze: tens of thousands of unclosed
// brackets, tags and emphasis markers, deep nesting, endless lines of words. Each is sized so
// that work growing with the square of its length would take many seconds; the test checks
// only that rendering finishes with the right result (timings are in bench/markup).

#include "describe.h"

#include "chat/markup/ansiwriter.h"
#include "chat/markup/htmlwriter.h"
#include "chat/markup/markup.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString shalom = u"\u05E9\u05DC\u05D5\u05DD"_s;

QString times(const QString &piece, int count)
{
    return piece.repeated(count);
}

QString alternating(const QString &first, const QString &second, int pairs)
{
    QStringList parts;
    for (int i = 0; i < pairs; ++i)
        parts << first << second;
    return parts.join(u'|');
}

} // namespace

class HostileInputTest : public QObject
{
    Q_OBJECT

private slots:
    void runs_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");

        const int n = 50000;
        QTest::newRow("unclosed brackets before a link-like tail")
            << times(u"["_s, n) + u"](http://x y)"_s
            << times(u"["_s, n) + u"](|http://x{@http://x}| y)"_s;
        QTest::newRow("brackets closed by a line break")
            << times(u"[a"_s, n) + u"\n](http://x)"_s
            << times(u"[a"_s, n) + u"\n](|http://x{@http://x}|)"_s;
        QTest::newRow("one label over the whole text")
            << u"["_s + times(u"x ["_s, n) + u"](https://a.b)"_s
            << times(u"x ["_s, n) + u"{@https://a.b}"_s;
        QStringList unclosedTargets{u"[a]("_s};
        for (int i = 0; i < n - 1; ++i)
            unclosedTargets << u"http://x[a{@http://x[a}"_s << u"]("_s;
        unclosedTargets << u"http://x{@http://x}"_s;
        QTest::newRow("targets without a closing parenthesis")
            << times(u"[a](http://x"_s, n) << unclosedTargets.join(u'|');
        QTest::newRow("many links")
            << times(u"[a](http://b) "_s, n / 4) << alternating(u"a{@http://b}"_s, u" "_s, n / 4);
        QTest::newRow("unclosed tags") << times(u"<b "_s, n) << times(u"<b "_s, n);
        QTest::newRow("unclosed anchors before one >")
            << times(u"<a "_s, n) + u">"_s << times(u"<a "_s, n) + u">"_s;
        QTest::newRow("unclosed anchors before an href")
            << times(u"<a "_s, n) + u"x> href=\"y\">"_s << times(u"<a "_s, n) + u"x> href=\"y\">"_s;
        QTest::newRow("unclosed href value")
            << times(u"<a href=\"x "_s, n) << times(u"<a href=\"x "_s, n);
        QTest::newRow("one tag over many openers") << times(u"<b"_s, n) + u">x"_s << u"x{b}"_s;
        QTest::newRow("deep nesting")
            << times(u"<b>"_s, n) + u"x"_s + times(u"</b>"_s, n) + u"y"_s << u"x{b}|y"_s;
        QTest::newRow("deep anchors")
            << times(u"<a href=\"http://a\">"_s, n / 2) + u"x"_s << u"x{@http://a}"_s;
        QTest::newRow("unpaired emphasis")
            << u"**"_s + times(u"a*"_s, n) << u"**"_s + times(u"a*"_s, n);
        QTest::newRow("emphasis pairs")
            << times(u"**a "_s, n) << alternating(u"a {b}"_s, u"a "_s, n / 2);
        QTest::newRow("emphasis over a long span")
            << u"**"_s + times(u"ab\n"_s, n) + u"**"_s << times(u"ab\n"_s, n) + u"{b}"_s;
        QTest::newRow("backslashes") << times(u"\\"_s, 2 * n + 1) << times(u"\\"_s, n + 1);
        QTest::newRow("entities") << times(u"&amp;lt;"_s, n) << times(u"&lt;"_s, n);
        QTest::newRow("bare links")
            << times(u"http://a "_s, n / 2) << alternating(u"http://a{@http://a}"_s, u" "_s, n / 2);
    }

    void runs()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(describe(Markup::attributed(text)), expected);
    }

    void lines_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");

        const int n = 30000;
        QTest::newRow("endless English run in a Hebrew line")
            << times(shalom + u" "_s, n + 1) + times(u"word, "_s, n - 1) + u"end"_s
            << u"<RLM>"_s + times(shalom + u" "_s, n + 1) + u"<LRI>"_s + times(u"word, "_s, n - 1) +
                   u"end<PDI>"_s;
        QTest::newRow("endless Hebrew run in an English line")
            << times(u"word "_s, n + 1) + times(shalom + u" 12 "_s, n / 2 - 1) + shalom
            << u"<LRM>"_s + times(u"word "_s, n + 1) + u"<RLI>"_s +
                   times(shalom + u" 12 "_s, n / 2 - 1) + shalom + u"<PDI>"_s;
        QTest::newRow("one endless word")
            << shalom + u" "_s + times(u"a/"_s, 5 * n) + u"b"_s
            << u"<RLM>"_s + shalom + u" <LRI>"_s + times(u"a/"_s, 5 * n) + u"b<PDI>"_s;
        QTest::newRow("short runs before a long stretch")
            << times(shalom + u" "_s + shalom + u" a "_s, 1000) + u"/"_s + times(u"x"_s, 1000000)
            << u"<RLM>"_s + times(shalom + u" "_s + shalom + u" <LRI>a<PDI> "_s, 999) + shalom +
                   u" "_s + shalom + u" <LRI>a /"_s + times(u"x"_s, 1000000) + u"<PDI>"_s;
        QTest::newRow("pipes") << times(u"|"_s, 5 * n) << u"<LRM>"_s + times(u"|"_s, 5 * n);
    }

    void lines()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(visible(Markup::shown(text)), expected);
    }

    void longTable()
    {
        const int rows = 20000;
        const QString text =
            u"| a | b |\n|---|---|\n"_s + times(u"| x | [y](http://y) |\n"_s, rows);
        const QList<Markup::Block> found = Markup::blocks(text);
        QCOMPARE(found.size(), 1);
        QCOMPARE(found[0].table.rows.size(), rows);
        QCOMPARE(describe(found[0].table.rows.last()[1].runs), u"y{@http://y}"_s);
        QVERIFY(Markup::HtmlWriter::write(found).endsWith(u"</table>"));
    }

    void wideTable()
    {
        const int columns = 20000;
        const QString text = u"|"_s + times(u"a|"_s, columns) + u"\n|"_s + times(u"-|"_s, columns);
        const QStringList lines = Markup::AnsiWriter::render(text, 80, false).split(u'\n');
        QCOMPARE(lines.size(), 3);
        QCOMPARE(Markup::AnsiWriter::displayWidth(lines[1]), 4 * columns + 1);
    }
};

QTEST_GUILESS_MAIN(HostileInputTest)
#include "markuphostiletest.moc"
