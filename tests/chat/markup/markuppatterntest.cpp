// The seven expressions: what each one means on the characters where engines disagree, and
// the bounded scanners, which must find exactly what a plain global match finds.

#include "chat/markup/patterns.h"

#include <QRandomGenerator>
#include <QTest>

using namespace Markup::Patterns;
using namespace Qt::StringLiterals;

namespace {

const QRegularExpression &byName(const QString &name)
{
    static const QHash<QString, const QRegularExpression *> all{
        {u"tags"_s, &tags()},         {u"bold"_s, &bold()},       {u"mdLink"_s, &mdLink()},
        {u"bareLink"_s, &bareLink()}, {u"escapes"_s, &escapes()}, {u"latin"_s, &latin()},
        {u"hebrew"_s, &hebrew()}};
    return *all.value(name);
}

QList<Span> scan(const QString &name, QStringView text, qsizetype window)
{
    QList<Span> out;
    if (name == u"tags") {
        for (const Tag &t : findTags(text))
            out.append({t.start, t.end});
    } else if (name == u"bold") {
        out = findBold(text);
    } else if (name == u"mdLink") {
        for (const Link &l : findMdLinks(text))
            out.append({l.start, l.end});
    } else if (name == u"bareLink") {
        out = findBareLinks(text);
    } else if (name == u"latin") {
        out = findLatin(text, window);
    } else {
        out = findHebrew(text, window);
    }
    return out;
}

QString spansText(const QList<Span> &spans)
{
    QStringList parts;
    for (const Span &s : spans)
        parts.append(QStringLiteral("%1-%2").arg(s.start).arg(s.end));
    return parts.join(u' ');
}

// Random text built from the tokens that matter to one expression.
QString randomText(QRandomGenerator &random, const QStringList &tokens)
{
    QString out;
    const int count = random.bounded(60);
    for (int i = 0; i < count; ++i)
        out += tokens[random.bounded(int(tokens.size()))];
    return out;
}

} // namespace

class PatternsTest : public QObject
{
    Q_OBJECT

private slots:
    // First match of a pattern, or "-" for none. The rows are where PCRE2's defaults differ
    // from what the markup means: \s is the Unicode White_Space set, \b after a tag name is
    // not found before a letter of any script, a mark or a format character, caseless
    // matching folds long s and the Kelvin sign, and "." in bold crosses every line break.
    void meaning_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("match");

        auto row = [](const char *name, const QString &pattern, const QString &text,
                      const QString &match) { QTest::newRow(name) << pattern << text << match; };
        const QString none = QStringLiteral("-");
        row("tag long s", u"tags"_s, u"<\u017Ftrong>"_s, u"<\u017Ftrong>"_s);
        row("tag kelvin", u"tags"_s, u"<bloc\u212Aquote>"_s, u"<bloc\u212Aquote>"_s);
        row("tag dotted capital I", u"tags"_s, u"<\u0130>"_s, none);
        row("tag then hebrew letter", u"tags"_s, u"<b\u05D0>"_s, none);
        row("tag then cyrillic letter", u"tags"_s, u"<b\u0434>"_s, none);
        row("tag then combining mark", u"tags"_s, u"<b\u0301>"_s, none);
        row("tag then direction mark", u"tags"_s, u"<b\u200F>"_s, none);
        row("tag then zero width joiner", u"tags"_s, u"<b\u200D>"_s, none);
        row("tag then superscript two", u"tags"_s, u"<b\u00B2>"_s, u"<b\u00B2>"_s);
        row("tag then arabic digit", u"tags"_s, u"<b\u0663>"_s, none);
        row("tag then hyphen", u"tags"_s, u"<b-x>"_s, u"<b-x>"_s);
        row("tag longer name", u"tags"_s, u"<span>"_s, none);
        row("tag across lines", u"tags"_s, u"<pre\nclass=x>"_s, u"<pre\nclass=x>"_s);
        row("anchor after line separator", u"tags"_s, u"<a\u2028href=\"u\">"_s,
            u"<a\u2028href=\"u\">"_s);
        row("anchor after no-break space", u"tags"_s, u"<a\u00A0href=\"u\">"_s,
            u"<a\u00A0href=\"u\">"_s);
        row("anchor after mongolian separator", u"tags"_s, u"<a\u180Ehref=\"u\">"_s, none);
        row("anchor value holds >", u"tags"_s, u"<a href=\"x>y\">"_s, u"<a href=\"x>y\">"_s);
        row("bold across line feed", u"bold"_s, u"**a\nb**"_s, u"**a\nb**"_s);
        row("bold across line separator", u"bold"_s, u"**a\u2028b**"_s, u"**a\u2028b**"_s);
        row("bold across carriage return", u"bold"_s, u"**a\rb**"_s, u"**a\rb**"_s);
        row("bold needs a character", u"bold"_s, u"****"_s, none);
        row("link upper case scheme", u"mdLink"_s, u"[x](HTTP://a)"_s, none);
        row("link label across lines", u"mdLink"_s, u"[a\nb](http://x)"_s, none);
        row("link target with no-break space", u"mdLink"_s, u"[x](http://a\u00A0b)"_s, none);
        row("link target with ideographic space", u"mdLink"_s, u"[x](http://a\u3000)"_s, none);
        row("bare link stops at no-break space", u"bareLink"_s, u"http://a\u00A0b"_s,
            u"http://a"_s);
        row("bare link stops at line separator", u"bareLink"_s, u"http://a\u2028b"_s,
            u"http://a"_s);
        row("bare link keeps mongolian separator", u"bareLink"_s, u"http://a\u180Eb"_s,
            u"http://a\u180Eb"_s);
        row("bare link stops at quote", u"bareLink"_s, u"http://a'b"_s, u"http://a"_s);
        row("latin accented", u"latin"_s, u"\u00C0bc\u024F"_s, u"\u00C0bc\u024F"_s);
        row("latin beyond range", u"latin"_s, u"\u0250"_s, none);
        row("latin no-break space joins", u"latin"_s, u"ab\u00A0cd"_s, u"ab\u00A0cd"_s);
        row("latin thin space splits", u"latin"_s, u"ab\u2009cd"_s, u"ab"_s);
        row("latin marks before a quote", u"latin"_s, u"(Really?!)"_s, u"Really?!"_s);
        row("latin marks without a quote", u"latin"_s, u"Really?! x"_s, u"Really"_s);
        row("latin curly quote", u"latin"_s, u"Hi!\u201D"_s, u"Hi!"_s);
        row("latin trailing dot", u"latin"_s, u"end."_s, u"end"_s);
        row("hebrew presentation forms", u"hebrew"_s, u"\uFB1D\uFDFF \uFE70\uFEFF"_s,
            u"\uFB1D\uFDFF \uFE70\uFEFF"_s);
        row("hebrew inner punctuation", u"hebrew"_s, u"\u05D0-\u05D1,\u05D2"_s,
            u"\u05D0-\u05D1,\u05D2"_s);
        row("hebrew ellipsis before quote", u"hebrew"_s, u"\u05D0\u2026\""_s, u"\u05D0\u2026"_s);
        row("hebrew number", u"hebrew"_s, u"\u05D0 12:30 x"_s, u"\u05D0 12:30"_s);
    }

    void meaning()
    {
        QFETCH(QString, pattern);
        QFETCH(QString, text);
        QFETCH(QString, match);
        const auto m = byName(pattern).match(text);
        QCOMPARE(m.hasMatch() ? m.captured(0) : QStringLiteral("-"), match);
    }

    // The scanners against the plain global match on random text, with tiny windows for
    // the runs of words so that every cut and resumption is exercised.
    void bounded_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<QStringList>("tokens");

        // Tokens joined by "|", which none of the expressions cares about.
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
            const QString text = randomText(random, tokens);
            const QString expected = spansText(globalSpans(byName(pattern), text));
            for (const qsizetype window : windows) {
                const QString found = spansText(scan(pattern, text, window));
                if (found != expected)
                    QFAIL(
                        qPrintable(QStringLiteral("window %1, text %2: %3 instead of %4")
                                       .arg(window)
                                       .arg(QString::fromLatin1(text.toUtf8().toPercentEncoding()),
                                            found, expected)));
            }
        }
    }

    void tagParts()
    {
        const QList<Tag> found =
            findTags(u"<B class=x>t</b><a target=_blank href=\"https://e.x/?q=1\">l</A>"_s);
        QCOMPARE(found.size(), 4);
        QCOMPARE(found[0].name, u"b"_s);
        QVERIFY(!found[0].closing);
        QCOMPARE(found[1].name, u"b"_s);
        QVERIFY(found[1].closing);
        QCOMPARE(found[2].name, u"a"_s);
        QCOMPARE(found[2].href, u"https://e.x/?q=1"_s);
        QVERIFY(found[3].closing);
        QCOMPARE(findTags(u"<\u017Ftrong>"_s).value(0).name, u"strong"_s);
    }

    // A line of tens of thousands of words is one run, although the engine alone would run
    // out of stack long before its end.
    void longRuns()
    {
        QString latinRun;
        QString hebrewRun;
        for (int i = 0; i < 40000; ++i) {
            latinRun += i % 7 == 0 ? u"word, "_s : i % 5 == 0 ? u"v1.2\u00A0"_s : u"path/x "_s;
            hebrewRun += i % 7 == 0 ? u"\u05E9\u05DC\u05D5\u05DD; "_s : u"\u05D0\u05D1 12 "_s;
        }
        latinRun += u"end"_s;
        hebrewRun += u"\u05EA"_s;
        QCOMPARE(findLatin(u"( "_s + latinRun + u" )"_s), (QList<Span>{{2, 2 + latinRun.size()}}));
        QCOMPARE(findHebrew(u"( "_s + hebrewRun + u" )"_s),
                 (QList<Span>{{2, 2 + hebrewRun.size()}}));
    }

    void unpairedSurrogates()
    {
        const QString text = u"**a"_s + QChar(0xD800) + u"b** [x](http://y) "_s + QChar(0xDC00);
        QCOMPARE(findBold(text), (QList<Span>{{0, 7}}));
        QCOMPARE(findMdLinks(text).size(), 1);
        QCOMPARE(unescaped(u"\\("_s + QChar(0xDC00)), u"("_s + QChar(0xFFFD));
    }
};

QTEST_GUILESS_MAIN(PatternsTest)
#include "markuppatterntest.moc"
