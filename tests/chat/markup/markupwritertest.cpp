// The writers: rich text that may load or run nothing and keeps each line's direction when Qt
// reads it; terminal output where only our own escape sequences act and tables fit the width;
// and `halvenmark-cli render`, which picks one of them.

#include "describe.h"
#include "support/testhome.h"

#include "chat/markup/ansiwriter.h"
#include "chat/markup/htmlwriter.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryFile>
#include <QTest>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextFragment>
#include <QTextTable>

using namespace Qt::StringLiterals;

namespace {

const QString shalom = u"\u05E9\u05DC\u05D5\u05DD"_s;

// Every tag the HTML writer may produce, with the attributes it may give it.
const QRegularExpression ownTag(
    uR"re(^<(?:/(?:div|b|i|u|s|code|a|table|tr|th|td)|(?:b|i|u|s|code|tr)|(?:div|th|td) dir="(?:ltr|rtl)"(?: style="white-space:pre-wrap(?:;font-family:monospace)?(?:;-qt-block-indent:1)?")?|table dir="(?:ltr|rtl)" border="1" cellspacing="0" cellpadding="4"|a href="(?:https?://|mailto:)[^"<>\s]*")>)re"_s);

// The terminal writer's own sequences: SGR styles and OSC 8 hyperlinks.
const QRegularExpression ownSequence(uR"(\x1b\[[0-9;]*m|\x1b\]8;;[!-~]*\x1b\\)"_s);

QString ansi(const QString &text, int width, bool colour)
{
    return Markup::AnsiWriter::render(text, width, colour).remove(ownSequence);
}

struct Reading {
    QString text;
    QStringList anchors;
    int images = 0;
};

// What Qt's rich text engine makes of the html: plain text, link targets, images.
Reading read(const QString &html)
{
    QTextDocument doc;
    doc.setHtml(html);
    Reading out{doc.toPlainText(), {}, 0};
    for (QTextBlock b = doc.begin(); b.isValid(); b = b.next()) {
        for (auto it = b.begin(); !it.atEnd(); ++it) {
            const QTextCharFormat f = it.fragment().charFormat();
            out.images += f.isImageFormat() ? 1 : 0;
            if (f.isAnchor())
                out.anchors.append(f.anchorHref());
        }
    }
    return out;
}

struct Result {
    int code = -1;
    QString out;
    QString err;
};

// The render command run on input, with the environment changed by env ("NAME=value"), its
// output to a pipe or, through script(1), to a terminal.
Result render(const QString &mode, const QByteArray &input, const QString &env, bool terminal)
{
    QTemporaryFile file;
    if (!file.open() || file.write(input) != input.size() || !file.flush())
        return {};
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(u"NO_COLOR"_s);
    if (!env.isEmpty())
        environment.insert(env.section(u'=', 0, 0), env.section(u'=', 1));
    QProcess process;
    process.setProcessEnvironment(environment);
    const QString command =
        QStringLiteral(HALVENMARK_RENDER_DRIVER " %1 < %2").arg(mode, file.fileName());
    if (terminal)
        process.start(u"script"_s, {u"-qec"_s, command, u"/dev/null"_s});
    else
        process.start(u"/bin/sh"_s, {u"-c"_s, command});
    if (!process.waitForFinished(60000))
        return {};
    return {process.exitCode(), visible(QString::fromUtf8(process.readAllStandardOutput())),
            QString::fromUtf8(process.readAllStandardError())};
}

} // namespace

class WriterTest : public QObject
{
    Q_OBJECT

    TestHome home;

private slots:
    void htmlInjection_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("visible"); // what must be seen as text
        QTest::newRow("image with handler") << u"<img src=x onerror=alert(1)>"_s << u"onerror"_s;
        QTest::newRow("inline style")
            << u"<div style=\"background-image:url(http://t.x)\">"_s << u"background-image"_s;
        QTest::newRow("javascript anchor, mixed case")
            << u"<a href=\"JaVaScRiPt:alert(1)\">x</a>"_s << u"x"_s;
        QTest::newRow("javascript markdown link")
            << u"[x](javascript:alert(1))"_s << u"javascript:alert(1)"_s;
        QTest::newRow("quote breaking out of href")
            << u"<a href=\"http://x.y/&quot; onclick=&quot;alert(1)\">t</a>"_s << u"t"_s;
        QTest::newRow("entity-encoded tags") << u"&lt;img src=x&gt;"_s << u"<img src=x>"_s;
        QTest::newRow("table cell") << u"| <img src=x> |\n|---|"_s << u"<img src=x>"_s;
    }

    void htmlInjection()
    {
        QFETCH(QString, text);
        QFETCH(QString, visible);
        const QString html = Markup::HtmlWriter::render(text);
        for (qsizetype at = html.indexOf(u'<'); at >= 0; at = html.indexOf(u'<', at + 1))
            QVERIFY2(ownTag.match(QStringView(html).sliced(at)).hasMatch(),
                     qPrintable(html.mid(at, 40)));
        const Reading reading = read(html);
        QCOMPARE(reading.images, 0);
        for (const QString &href : reading.anchors)
            QVERIFY2(QRegularExpression(u"^(https?://|mailto:)[^\" ]*$"_s).match(href).hasMatch(),
                     qPrintable(href));
        QVERIFY2(reading.text.contains(visible), qPrintable(reading.text));
    }

    void htmlLinksAndDirections()
    {
        const Reading links = read(Markup::HtmlWriter::render(
            u"[a](https://a.x/?q=1&r=2) <a href=\"mailto:me@b.x\">b</a> http://c.x/\u05D0"_s));
        QCOMPARE(links.anchors, (QStringList{u"https://a.x/?q=1&r=2"_s, u"mailto:me@b.x"_s,
                                             u"http://c.x/%D7%90"_s}));
        QCOMPARE(visible(links.text), u"<LRM>a b http://c.x/<RLI>\u05D0<PDI>"_s);

        QTextDocument doc;
        doc.setHtml(Markup::HtmlWriter::render(shalom + u" /usr/local/bin\nplain\n\n"_s + shalom +
                                               u"\n| a | "_s + shalom + u" |\n|---|---|"_s));
        QStringList found;
        for (QTextBlock b = doc.begin(); b.isValid(); b = b.next()) {
            if (b.text().isEmpty())
                continue; // the block Qt keeps after a table; every line of ours has a mark
            const bool rtl = b.blockFormat().layoutDirection() == Qt::RightToLeft;
            found.append((rtl ? u"R:"_s : u"L:"_s) + visible(b.text()));
        }
        QCOMPARE(found, (QStringList{u"R:<RLM>"_s + shalom + u" <LRI>/usr/local/bin<PDI>"_s,
                                     u"L:<LRM>plain"_s, u"L:<LRM>"_s, u"R:<RLM>"_s + shalom,
                                     u"L:<LRM>a"_s, u"R:<RLM>"_s + shalom}));
        QVERIFY(qobject_cast<QTextTable *>(doc.rootFrame()->childFrames().value(0)));
    }

    void ansiStyles_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("colour");
        QTest::addColumn<QString>("plain");
        QTest::newRow("styles") << u"**b** <i>i</i><u>u</u><s>s</s><b><i>x</i></b><code>c</code>"_s
                                << u"<LRM>\x1b[1mb\x1b[0m \x1b[3mi\x1b[0m\x1b[4mu\x1b[0m"
                                   "\x1b[9ms\x1b[0m\x1b[1;3mx\x1b[0m\x1b[2mc\x1b[0m"_s
                                << u"<LRM>b iusxc"_s;
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

    void ansiStyles()
    {
        QFETCH(QString, text);
        QFETCH(QString, colour);
        QFETCH(QString, plain);
        QCOMPARE(visible(Markup::AnsiWriter::render(text, 80, true)), colour);
        QCOMPARE(visible(Markup::AnsiWriter::render(text, 80, false)), plain);
    }

    // Whatever the message holds, the only escape sequences that reach the terminal are ours.
    void ansiInjection_data()
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

    void ansiInjection()
    {
        QFETCH(QString, text);
        static const QRegularExpression control(u"[\\x00-\\x09\\x0B-\\x1F\\x7F-\\x9F]"_s);
        for (const bool colour : {true, false})
            QVERIFY2(!ansi(text, 40, colour).contains(control), qPrintable(ansi(text, 40, colour)));
    }

    void ansiTableFits_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<bool>("colour");
        for (const int width : {24, 40, 200}) {
            QTest::addRow("%d columns", width) << width << false;
            QTest::addRow("%d columns, colour", width) << width << true;
        }
    }

    void ansiTableFits()
    {
        QFETCH(int, width);
        QFETCH(bool, colour);
        const QStringList lines =
            ansi(u"| name | what it does | \u4E2D\u6587 |\n|---|---|---|\n"
                 "| short | a rather long description that must wrap inside its column "
                 "| \u4E2D\u6587\u4E2D\u6587\u4E2D\u6587 |\n"
                 "| supercalifragilisticexpialidocious | x | [l](http://l.x) |"_s,
                 width, colour)
                .split(u'\n');
        QStringList columns(3);
        for (const QString &line : lines) {
            // Every line is as wide as the others, so the borders line up, and fits.
            QVERIFY2(Markup::AnsiWriter::displayWidth(line) <= width, qPrintable(line));
            QCOMPARE(Markup::AnsiWriter::displayWidth(line),
                     Markup::AnsiWriter::displayWidth(lines.first()));
            const QStringList parts = line.split(QChar(0x2502));
            for (int c = 0; parts.size() == 5 && c < 3; ++c)
                columns[c] += parts[c + 1];
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

    void command_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QString>("env");
        QTest::addColumn<bool>("terminal");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("out"); // or, on failure, what stderr names
        QTest::newRow("html") << u"html"_s << QByteArray("**x**") << QString() << false << 0
                              << u"<div dir=\"ltr\" style=\"white-space:pre-wrap\"><LRM><b>x</b>"
                                 "</div>\n"_s;
        // Direction marks are invisible: a pipe gets none.
        QTest::newRow("ansi to a pipe")
            << u"ansi"_s << QByteArray("**x**") << QString() << false << 0 << u"x\n"_s;
        QTest::newRow("ansi to a terminal") << u"ansi"_s << QByteArray("**x**") << QString() << true
                                            << 0 << u"<LRM>\x1b[1mx\x1b[0m\r\n"_s;
        QTest::newRow("ansi to a terminal, NO_COLOR")
            << u"ansi"_s << QByteArray("**x**") << u"NO_COLOR=1"_s << true << 0 << u"<LRM>x\r\n"_s;
        QTest::newRow("width from COLUMNS")
            << u"ansi"_s << QByteArray("| a | b |\n|-|-|\n| some words to wrap | 1 |")
            << u"COLUMNS=16"_s << false << 0
            << u"\u250C"_s + QString(10, QChar(0x2500)) + u"\u252C\u2500\u2500\u2500\u2510"_s;
        QTest::newRow("invalid UTF-8 is shown, not refused")
            << u"plain"_s << QByteArray("a\xff\xfe b \xc3") << QString() << false << 0
            << u"<LRM>a\uFFFD\uFFFD b \uFFFD\n"_s;
        QTest::newRow("empty input")
            << u"ansi"_s << QByteArray() << QString() << false << 0 << QString();
        QTest::newRow("unknown mode")
            << u"--pdf"_s << QByteArray("x") << QString() << false << 2 << u"--pdf"_s;
    }

    void command()
    {
        QFETCH(QString, mode);
        QFETCH(QByteArray, input);
        QFETCH(QString, env);
        QFETCH(bool, terminal);
        QFETCH(int, code);
        QFETCH(QString, out);
        const Result r = render(mode, input, env, terminal);
        QCOMPARE(r.code, code);
        if (code != 0)
            QVERIFY2(r.err.contains(out), qPrintable(r.err));
        else
            QCOMPARE(mode == u"ansi" && env.startsWith(u"COLUMNS") ? r.out.section(u'\n', 0, 0)
                                                                   : r.out,
                     out);
    }
};

QTEST_MAIN(WriterTest)
#include "markupwritertest.moc"
