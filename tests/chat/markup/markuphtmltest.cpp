// Rich text for the desktop: nothing in a message may load or run anything, and the lines keep
// their direction when Qt's own rich text engine reads the result.

#include "describe.h"

#include "chat/markup/htmlwriter.h"

#include <QRegularExpression>
#include <QTest>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextFragment>
#include <QTextTable>

using namespace Qt::StringLiterals;

namespace {

// Every tag the writer may produce, with the attributes it may give it.
const QRegularExpression ownTag(
    uR"re(^<(?:/(?:div|b|i|u|s|code|a|table|tr|th|td)|(?:b|i|u|s|code|tr)|(?:div|th|td) dir="(?:ltr|rtl)"(?: style="white-space:pre-wrap(?:;font-family:monospace)?(?:;-qt-block-indent:1)?")?|table dir="(?:ltr|rtl)" border="1" cellspacing="0" cellpadding="4"|a href="(?:https?://|mailto:)[^"<>\s]*")>)re"_s);

// The first tag in html that the writer does not make, or empty.
QString strangerTag(const QString &html)
{
    for (qsizetype at = html.indexOf(u'<'); at >= 0; at = html.indexOf(u'<', at + 1)) {
        const auto m = ownTag.match(QStringView(html).sliced(at));
        if (!m.hasMatch())
            return html.mid(at, 40);
    }
    return {};
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
    Reading out;
    out.text = doc.toPlainText();
    for (QTextBlock b = doc.begin(); b.isValid(); b = b.next()) {
        for (auto it = b.begin(); !it.atEnd(); ++it) {
            const QTextCharFormat f = it.fragment().charFormat();
            if (f.isImageFormat())
                ++out.images;
            if (f.isAnchor())
                out.anchors.append(f.anchorHref());
        }
    }
    return out;
}

} // namespace

class HtmlWriterTest : public QObject
{
    Q_OBJECT

private slots:
    void injection_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("visible"); // what must be seen as text

        QTest::newRow("image with handler") << u"<img src=x onerror=alert(1)>"_s << u"onerror"_s;
        QTest::newRow("script") << u"<script>alert(1)</script>"_s << u"<script>"_s;
        QTest::newRow("style") << u"<style>body{background:url(http://t.x)}</style>"_s
                               << u"<style>"_s;
        QTest::newRow("handler on our tag") << u"<b onmouseover=\"alert(1)\">x</b>"_s << u"x"_s;
        QTest::newRow("handler on an anchor")
            << u"<a href=\"http://ok.x\" onclick=\"alert(1)\">x</a>"_s << u"x"_s;
        QTest::newRow("javascript anchor, mixed case")
            << u"<a href=\"JaVaScRiPt:alert(1)\">x</a>"_s << u"x"_s;
        QTest::newRow("javascript anchor after a space")
            << u"<a href=\" javascript:alert(1)\">x</a>"_s << u"x"_s;
        QTest::newRow("data anchor") << u"<a href=\"data:text/html,<script>\">x</a>"_s << u"x"_s;
        QTest::newRow("javascript markdown link")
            << u"[x](javascript:alert(1))"_s << u"javascript:alert(1)"_s;
        QTest::newRow("quote breaking out of href")
            << u"<a href=\"http://x.y/&quot; onclick=&quot;alert(1)\">t</a>"_s << u"t"_s;
        QTest::newRow("entity-encoded tags") << u"&lt;img src=x&gt;"_s << u"<img src=x>"_s;
        QTest::newRow("iframe") << u"<iframe src=\"http://t.x\"></iframe>"_s << u"<iframe"_s;
        QTest::newRow("inline style")
            << u"<div style=\"background-image:url(http://t.x)\">"_s << u"background-image"_s;
        QTest::newRow("table cell") << u"| <img src=x> |\n|---|"_s << u"<img src=x>"_s;
        QTest::newRow("control characters") << u"a\x01\x1b[31mb"_s << u"[31mb"_s;
    }

    void injection()
    {
        QFETCH(QString, text);
        QFETCH(QString, visible);
        const QString html = Markup::HtmlWriter::render(text);
        QVERIFY2(strangerTag(html).isEmpty(), qPrintable(strangerTag(html)));
        const Reading reading = read(html);
        QCOMPARE(reading.images, 0);
        for (const QString &href : reading.anchors) {
            QVERIFY2(href.startsWith(u"http://") || href.startsWith(u"https://") ||
                         href.startsWith(u"mailto:"),
                     qPrintable(href));
            QVERIFY2(!href.contains(u'"') && !href.contains(u' '), qPrintable(href));
        }
        QVERIFY2(reading.text.contains(visible), qPrintable(reading.text));
    }

    void links()
    {
        const Reading reading = read(Markup::HtmlWriter::render(
            u"[a](https://a.x/?q=1&r=2) <a href=\"mailto:me@b.x\">b</a> http://c.x/\u05D0"_s));
        QCOMPARE(reading.anchors, (QStringList{u"https://a.x/?q=1&r=2"_s, u"mailto:me@b.x"_s,
                                               u"http://c.x/%D7%90"_s}));
        QCOMPARE(visible(reading.text), u"<LRM>a b http://c.x/<RLI>\u05D0<PDI>"_s);
    }

    void directions()
    {
        const QString shalom = u"\u05E9\u05DC\u05D5\u05DD"_s;
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
};

QTEST_MAIN(HtmlWriterTest)
#include "markuphtmltest.moc"
