// The writers: rich text that may load or run nothing and keeps each line's direction when Qt
// reads it; terminal output where only our own escape sequences act and tables fit the width;
// and `halvenmark-cli render`, which picks one of them.

#include "describe.h"
#include "support/testhome.h"

#include "chat/markup/ansiwriter.h"
#include "chat/markup/htmlwriter.h"

#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
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

Result render(const QString &mode, const QByteArray &input, const QString &columns = {})
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(u"NO_COLOR"_s);
    env.insert(u"LANG"_s, u"en_US.UTF-8"_s);
    if (!columns.isEmpty())
        env.insert(u"COLUMNS"_s, columns);
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(HALVENMARK_RENDER_DRIVER), {mode});
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000))
        return {};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
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
        QTest::newRow("handler on an anchor")
            << u"<a href=\"http://ok.x\" onclick=\"alert(1)\">x</a>"_s << u"x"_s;
        QTest::newRow("javascript anchor, mixed case")
            << u"<a href=\"JaVaScRiPt:alert(1)\">x</a>"_s << u"x"_s;
        QTest::newRow("javascript anchor after a space")
            << u"<a href=\" javascript:alert(1)\">x</a>"_s << u"x"_s;
        QTest::newRow("javascript markdown link")
            << u"[x](javascript:alert(1))"_s << u"javascript:alert(1)"_s;
        QTest::newRow("quote breaking out of href")
            << u"<a href=\"http://x.y/&quot; onclick=&quot;alert(1)\">t</a>"_s << u"t"_s;
        QTest::newRow("entity-encoded tags") << u"&lt;img src=x&gt;"_s << u"<img src=x>"_s;
        QTest::newRow("table cell") << u"| <img src=x> |\n|---|"_s << u"<img src=x>"_s;
        QTest::newRow("control characters") << u"a\x01\x1b[31mb"_s << u"[31mb"_s;
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
                                               u"\n| a |\n|---|"_s));
        QStringList found;
        for (QTextBlock b = doc.begin(); b.isValid(); b = b.next()) {
            if (b.text().isEmpty())
                continue; // the block Qt keeps after a table; every line of ours has a mark
            const bool rtl = b.blockFormat().layoutDirection() == Qt::RightToLeft;
            found.append((rtl ? u"R:"_s : u"L:"_s) + visible(b.text()));
        }
        QCOMPARE(found, (QStringList{u"R:<RLM>"_s + shalom + u" <LRI>/usr/local/bin<PDI>"_s,
                                     u"L:<LRM>plain"_s, u"L:<LRM>"_s, u"R:<RLM>"_s + shalom,
                                     u"L:<LRM>a"_s}));
        QVERIFY(qobject_cast<QTextTable *>(doc.rootFrame()->childFrames().value(0)));
    }

    void ansiStyles_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("colour");
        QTest::addColumn<QString>("plain");
        QTest::newRow("styles") << u"**b** <i>i</i><u>u</u><s>s</s><b><i>x</i></b>"_s
                                << u"<LRM>\x1b[1mb\x1b[0m \x1b[3mi\x1b[0m\x1b[4mu\x1b[0m"
                                   "\x1b[9ms\x1b[0m\x1b[1;3mx\x1b[0m"_s
                                << u"<LRM>b iusx"_s;
        QTest::newRow("code is dim")
            << u"run <code>ls</code>"_s << u"<LRM>run \x1b[2mls\x1b[0m"_s << u"<LRM>run ls"_s;
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
        for (const bool colour : {true, false}) {
            const QString out = ansi(text, 40, colour);
            for (const QChar c : out) {
                const char16_t u = c.unicode();
                QVERIFY2(u == u'\n' || (u >= 0x20 && u != 0x7F && !(u >= 0x80 && u <= 0x9F)),
                         qPrintable(u"U+%1 in %2"_s.arg(int(u), 4, 16, QChar(u'0')).arg(out)));
            }
        }
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

    void displayWidth_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("width");
        QTest::newRow("hebrew points, combining accent") << u"\u05E9\u05B8\u05C1e\u0301"_s << 2;
        QTest::newRow("direction marks") << u"\u200E\u200F\u2066\u2069"_s << 0;
        QTest::newRow("cjk and emoji") << u"\u4E2D\u6587\U0001F600"_s << 6;
    }

    void displayWidth()
    {
        QFETCH(QString, text);
        QFETCH(int, width);
        QCOMPARE(Markup::AnsiWriter::displayWidth(text), width);
    }

    void command_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        const QString olam = u"\u05E2\u05D5\u05DC\u05DD"_s;
        const QByteArray message = (u"**"_s + shalom + u"** /usr/bin "_s + olam).toUtf8();
        const QString rest = u" <LRI>/usr/bin<PDI> "_s + olam;
        QTest::newRow("html") << u"html"_s << message << 0
                              << u"<div dir=\"rtl\" style=\"white-space:pre-wrap\"><RLM><b>"_s +
                                     shalom + u"</b>"_s + rest + u"</div>\n"_s
                              << QString();
        // Through a pipe stdout is no terminal: no colour.
        QTest::newRow("ansi") << u"ansi"_s << message << 0 << u"<RLM>"_s + shalom + rest + u"\n"_s
                              << QString();
        QTest::newRow("invalid UTF-8 is shown, not refused")
            << u"plain"_s << QByteArray("a\xff\xfe b \xc3") << 0
            << u"<LRM>a\uFFFD\uFFFD b \uFFFD\n"_s << QString();
        QTest::newRow("unknown mode") << u"--pdf"_s << QByteArray("x") << 2 << QString()
                                      << u"--pdf"_s;
    }

    void command()
    {
        QFETCH(QString, mode);
        QFETCH(QByteArray, input);
        QFETCH(int, code);
        QFETCH(QString, out);
        QFETCH(QString, err);
        const Result r = render(mode, input);
        QCOMPARE(r.code, code);
        QCOMPARE(visible(r.out), out);
        QVERIFY2(r.err.contains(err), qPrintable(r.err));
    }

    void commandWidthFromColumns()
    {
        const Result r = render(u"ansi"_s, "| a | some words that will wrap | b |\n|-|-|-|\n| 1 | 2 | 3 |\n", u"24"_s);
        QCOMPARE(r.code, 0);
        const QStringList lines = r.out.trimmed().split(u'\n');
        QVERIFY(lines.size() > 5);
        for (const QString &line : lines)
            QCOMPARE(line.size() - line.count(QChar(0x200E)), 24);
    }

    // On a terminal (script(1) gives it one) styles are on, unless NO_COLOR says otherwise.
    void commandColourOnTerminals()
    {
        const QString script = QStandardPaths::findExecutable(u"script"_s);
        if (script.isEmpty())
            QSKIP("script(1) is needed to run the command on a terminal");
        QTemporaryFile input;
        QVERIFY(input.open());
        input.write("**bold** [x](http://e.x)\n");
        input.flush();
        for (const bool noColor : {false, true}) {
            QProcess process;
            QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
            env.insert(u"NO_COLOR"_s, noColor ? u"1"_s : QString());
            process.setProcessEnvironment(env);
            process.start(script, {u"-qec"_s,
                                   QStringLiteral(HALVENMARK_RENDER_DRIVER " ansi < ") +
                                       input.fileName(),
                                   u"/dev/null"_s});
            QVERIFY(process.waitForFinished(60000));
            const QByteArray out = process.readAllStandardOutput();
            QCOMPARE(out.contains("\x1b[1mbold\x1b[0m"), !noColor);
            QCOMPARE(out.contains("\x1b]8;;http://e.x\x1b\\x"), !noColor);
            QCOMPARE(out.contains("x (http://e.x)"), noColor);
        }
    }
};

QTEST_MAIN(WriterTest)
#include "markupwritertest.moc"
