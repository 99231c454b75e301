// Terminal output: styles and hyperlinks as escape sequences, nothing from the message able to
// act on the terminal, and tables that fit the width.

#include "describe.h"

#include "chat/markup/ansiwriter.h"

#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// The writer's own sequences: SGR styles and OSC 8 hyperlinks.
const QRegularExpression ownSequence(uR"(\x1b\[[0-9;]*m|\x1b\]8;;[!-~]*\x1b\\)"_s);

QString withoutOwnSequences(QString text)
{
    return text.remove(ownSequence);
}

} // namespace

class AnsiWriterTest : public QObject
{
    Q_OBJECT

private slots:
    void styles_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("colour");
        QTest::addColumn<QString>("plain");
        QTest::newRow("bold") << u"a **b** c"_s << u"<LRM>a \x1b[1mb\x1b[0m c"_s << u"<LRM>a b c"_s;
        QTest::newRow("italic underline strike")
            << u"<i>i</i><u>u</u><s>s</s>"_s
            << u"<LRM>\x1b[3mi\x1b[0m\x1b[4mu\x1b[0m\x1b[9ms\x1b[0m"_s << u"<LRM>ius"_s;
        QTest::newRow("bold italic")
            << u"<b><i>x</i></b>"_s << u"<LRM>\x1b[1;3mx\x1b[0m"_s << u"<LRM>x"_s;
        QTest::newRow("code is dim")
            << u"run <code>ls</code>"_s << u"<LRM>run \x1b[2mls\x1b[0m"_s << u"<LRM>run ls"_s;
        QTest::newRow("broken markdown link leaves a bare one")
            << u"[docs](https://d.x/a b)"_s
            << u"<LRM>[docs](\x1b]8;;https://d.x/a\x1b\\https://d.x/a\x1b]8;;\x1b\\ b)"_s
            << u"<LRM>[docs](https://d.x/a b)"_s;
        QTest::newRow("hyperlink with label")
            << u"see [docs](https://d.x/\u00E9)"_s
            << u"<LRM>see \x1b]8;;https://d.x/%C3%A9\x1b\\docs\x1b]8;;\x1b\\"_s
            << u"<LRM>see docs (https://d.x/\u00E9)"_s;
        QTest::newRow("bare link written once")
            << u"at http://a.x"_s << u"<LRM>at \x1b]8;;http://a.x\x1b\\http://a.x\x1b]8;;\x1b\\"_s
            << u"<LRM>at http://a.x"_s;
        QTest::newRow("quote") << u"<blockquote>q</blockquote>"_s
                               << u"<LRM>\x1b[2m\u2502 \x1b[0m\x1b[3mq\x1b[0m"_s
                               << u"<LRM>\u2502 q"_s;
    }

    void styles()
    {
        QFETCH(QString, text);
        QFETCH(QString, colour);
        QFETCH(QString, plain);
        QCOMPARE(visible(Markup::AnsiWriter::render(text, 80, true)), colour);
        QCOMPARE(visible(Markup::AnsiWriter::render(text, 80, false)), plain);
    }

    // Whatever the message holds, the only escape sequences that reach the terminal are ours.
    void terminalInjection_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("clear screen") << u"a\x1b[2J\x1b[Hb"_s;
        QTest::newRow("fake hyperlink") << u"\x1b]8;;http://evil.x\x1b\\click\x1b]8;;\x1b\\"_s;
        QTest::newRow("title change") << u"\x1b]0;owned\x07"_s;
        QTest::newRow("eight-bit CSI") << u"a\u009B2Jb"_s;
        QTest::newRow("carriage return") << u"visible\rhidden"_s;
        QTest::newRow("in a table") << u"| \x1b[2J | b |\n|---|---|\n| \u009B | \x7f |"_s;
        QTest::newRow("in a link") << u"[x\x1b[2J](http://a.x/\x1b[2J)"_s;
    }

    void terminalInjection()
    {
        QFETCH(QString, text);
        for (const bool colour : {true, false}) {
            const QString out = withoutOwnSequences(Markup::AnsiWriter::render(text, 40, colour));
            for (const QChar c : out) {
                const char16_t u = c.unicode();
                QVERIFY2(
                    u == u'\n' || (u >= 0x20 && u != 0x7F && !(u >= 0x80 && u <= 0x9F)),
                    qPrintable(
                        QStringLiteral("U+%1 in %2").arg(int(u), 4, 16, QChar(u'0')).arg(out)));
            }
        }
    }

    void tableFits_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<bool>("colour");
        for (const int width : {24, 40, 80, 200}) {
            QTest::addRow("%d columns", width) << width << false;
            QTest::addRow("%d columns, colour", width) << width << true;
        }
    }

    void tableFits()
    {
        QFETCH(int, width);
        QFETCH(bool, colour);
        const QString text = u"| name | what it does | \u4E2D\u6587 |\n|---|---|---|\n"
                             "| short | a rather long description that must wrap inside its column "
                             "| \u4E2D\u6587\u4E2D\u6587\u4E2D\u6587 |\n"
                             "| supercalifragilisticexpialidocious | x | [l](http://l.x) |"_s;
        const QStringList lines =
            withoutOwnSequences(Markup::AnsiWriter::render(text, width, colour)).split(u'\n');
        QStringList columns(3);
        for (const QString &line : lines) {
            QVERIFY2(Markup::AnsiWriter::displayWidth(line) <= width, qPrintable(line));
            // Every line of a table is as wide as the others: the borders line up.
            QCOMPARE(Markup::AnsiWriter::displayWidth(line),
                     Markup::AnsiWriter::displayWidth(lines.first()));
            const QStringList parts = line.split(QChar(0x2502));
            if (parts.size() == 5) {
                for (int c = 0; c < 3; ++c)
                    columns[c] += parts[c + 1];
            }
        }
        // Nothing is lost in the wrapping: every word is still in its column.
        const QString all = columns.join(u'|').remove(QRegularExpression(u"[\\s\u200E\u200F]"_s));
        QStringList words{u"name"_s, u"description"_s, u"column"_s, u"\u4E2D\u6587\u4E2D\u6587"_s,
                          u"supercalifragilisticexpialidocious"_s};
        if (!colour)
            words.append(u"l(http://l.x)"_s); // no hyperlinks: the target is written out
        for (const QString &word : words)
            QVERIFY2(all.contains(word), qPrintable(all));
    }

    void displayWidth_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("width");
        QTest::newRow("hebrew points") << u"\u05E9\u05B8\u05C1"_s << 1;
        QTest::newRow("combining accent") << u"e\u0301"_s << 1;
        QTest::newRow("direction marks") << u"\u200E\u200F\u2066\u2069"_s << 0;
        QTest::newRow("cjk") << u"\u4E2D\u6587"_s << 4;
        QTest::newRow("emoji") << u"\U0001F600"_s << 2;
    }

    void displayWidth()
    {
        QFETCH(QString, text);
        QFETCH(int, width);
        QCOMPARE(Markup::AnsiWriter::displayWidth(text), width);
    }
};

QTEST_GUILESS_MAIN(AnsiWriterTest)
#include "markupansitest.moc"
