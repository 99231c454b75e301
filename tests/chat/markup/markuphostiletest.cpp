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
            << u"["_s.repeated(n) + u"](http://x y)"_s
            << u"["_s.repeated(n) + u"](|http://x{@http://x}| y)"_s;
        QTest::newRow("brackets closed by a line break")
            << u"[a"_s.repeated(n) + u"\n](http://x)"_s
            << u"[a"_s.repeated(n) + u"\n](|http://x{@http://x}|)"_s;
        QTest::newRow("one label over the whole text")
            << u"["_s + u"x ["_s.repeated(n) + u"](https://a.b)"_s
            << u"x ["_s.repeated(n) + u"{@https://a.b}"_s;
        QStringList unclosedTargets{u"[a]("_s};
        for (int i = 0; i < n - 1; ++i)
            unclosedTargets << u"http://x[a{@http://x[a}"_s << u"]("_s;
        unclosedTargets << u"http://x{@http://x}"_s;
        QTest::newRow("targets without a closing parenthesis")
            << u"[a](http://x"_s.repeated(n) << unclosedTargets.join(u'|');
        QTest::newRow("many links")
            << u"[a](http://b) "_s.repeated(n / 4) << alternating(u"a{@http://b}"_s, u" "_s, n / 4);
        QTest::newRow("unclosed tags") << u"<b "_s.repeated(n) << u"<b "_s.repeated(n);
        QTest::newRow("unclosed anchors before one >")
            << u"<a "_s.repeated(n) + u">"_s << u"<a "_s.repeated(n) + u">"_s;
        QTest::newRow("unclosed anchors before an href")
            << u"<a "_s.repeated(n) + u"x> href=\"y\">"_s
            << u"<a "_s.repeated(n) + u"x> href=\"y\">"_s;
        QTest::newRow("unclosed href value")
            << u"<a href=\"x "_s.repeated(n) << u"<a href=\"x "_s.repeated(n);
        QTest::newRow("one tag over many openers") << u"<b"_s.repeated(n) + u">x"_s << u"x{b}"_s;
        QTest::newRow("deep nesting")
            << u"<b>"_s.repeated(n) + u"x"_s + u"</b>"_s.repeated(n) + u"y"_s << u"x{b}|y"_s;
        QTest::newRow("deep anchors")
            << u"<a href=\"http://a\">"_s.repeated(n / 2) + u"x"_s << u"x{@http://a}"_s;
        QTest::newRow("unpaired emphasis")
            << u"**"_s + u"a*"_s.repeated(n) << u"**"_s + u"a*"_s.repeated(n);
        QTest::newRow("emphasis pairs")
            << u"**a "_s.repeated(n) << alternating(u"a {b}"_s, u"a "_s, n / 2);
        QTest::newRow("emphasis over a long span")
            << u"**"_s + u"ab\n"_s.repeated(n) + u"**"_s << u"ab\n"_s.repeated(n) + u"{b}"_s;
        QTest::newRow("backslashes") << u"\\"_s.repeated(2 * n + 1) << u"\\"_s.repeated(n + 1);
        QTest::newRow("entities") << u"&amp;lt;"_s.repeated(n) << u"&lt;"_s.repeated(n);
        QTest::newRow("bare links") << u"http://a "_s.repeated(n / 2)
                                    << alternating(u"http://a{@http://a}"_s, u" "_s, n / 2);
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
            << (shalom + u" "_s).repeated(n + 1) + u"word, "_s.repeated(n - 1) + u"end"_s
            << u"<RLM>"_s + (shalom + u" "_s).repeated(n + 1) + u"<LRI>"_s +
                   u"word, "_s.repeated(n - 1) + u"end<PDI>"_s;
        QTest::newRow("endless Hebrew run in an English line")
            << u"word "_s.repeated(n + 1) + (shalom + u" 12 "_s).repeated(n / 2 - 1) + shalom
            << u"<LRM>"_s + u"word "_s.repeated(n + 1) + u"<RLI>"_s +
                   (shalom + u" 12 "_s).repeated(n / 2 - 1) + shalom + u"<PDI>"_s;
        QTest::newRow("one endless word")
            << shalom + u" "_s + u"a/"_s.repeated(5 * n) + u"b"_s
            << u"<RLM>"_s + shalom + u" <LRI>"_s + u"a/"_s.repeated(5 * n) + u"b<PDI>"_s;
        QTest::newRow("short runs before a long stretch")
            << (shalom + u" "_s + shalom + u" a "_s).repeated(1000) + u"/"_s +
                   u"x"_s.repeated(1000000)
            << u"<RLM>"_s + (shalom + u" "_s + shalom + u" <LRI>a<PDI> "_s).repeated(999) + shalom +
                   u" "_s + shalom + u" <LRI>a /"_s + u"x"_s.repeated(1000000) + u"<PDI>"_s;
        QTest::newRow("pipes") << u"|"_s.repeated(5 * n) << u"<LRM>"_s + u"|"_s.repeated(5 * n);
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
            u"| a | b |\n|---|---|\n"_s + u"| x | [y](http://y) |\n"_s.repeated(rows);
        const QList<Markup::Block> found = Markup::blocks(text);
        QCOMPARE(found.size(), 1);
        QCOMPARE(found[0].table.rows.size(), rows);
        QCOMPARE(describe(found[0].table.rows.last()[1].runs), u"y{@http://y}"_s);
        QVERIFY(Markup::HtmlWriter::write(found).endsWith(u"</table>"));
    }

    void wideTable() {
        const int columns = 20000;
        const QString text =
            u"|"_s + u"a|"_s.repeated(columns) + u"\n|"_s + u"-|"_s.repeated(columns);
        const QStringList lines = Markup::AnsiWriter::render(text, 80, false).split(u'\n');
        QCOMPARE(lines.size(), 3);
        QCOMPARE(Markup::AnsiWriter::displayWidth(lines[1]), 4 * columns + 1);
    }
};

QTEST_GUILESS_MAIN(HostileInputTest)
#include "markuphostiletest.moc"
