// How the terminal client lays text out and reads its command line, as pure functions:
// wrapping, right-to-left tables, direction marks, links, log entries, closest matches.

#include "chatlog.h"
#include "commandtable.h"
#include "render.h"

#include "chat/markup/ansiwriter.h"
#include "chat/markup/markup.h"
#include "text/l.h"

#include <QTest>

using namespace Qt::StringLiterals;
using Markup::AnsiWriter::Options;

namespace {

// Each wrapped line of text, "|"-joined.
QString wrapped(const QString &text, int width)
{
    QStringList lines;
    for (const auto &[from, to] : Markup::AnsiWriter::wrap(text, width))
        lines << text.mid(from, to - from);
    return lines.join(u'|');
}

} // namespace

class TerminalLayoutTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { L::pin(u"en"_s); }

    void wrapsAtWords_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("width");
        QTest::addColumn<QString>("lines");
        QTest::newRow("fits") << u"two words"_s << 9 << u"two words"_s;
        QTest::newRow("at a space") << u"two words"_s << 8 << u"two|words"_s;
        QTest::newRow("spaces at the break dropped") << u"a    b"_s << 2 << u"a|b"_s;
        QTest::newRow("a long word is broken") << u"abcdefgh ij"_s << 3 << u"abc|def|gh|ij"_s;
        QTest::newRow("wide characters take two") << u"日本語 x"_s << 4 << u"日本|語 x"_s;
        QTest::newRow("Hebrew words") << u"שלום עולם יפה"_s << 9 << u"שלום עולם|יפה"_s;
        QTest::newRow("combining marks take none")
            << u"e\u0301e\u0301 e"_s << 2 << u"e\u0301e\u0301|e"_s;
        QTest::newRow("empty") << QString() << 5 << QString();
    }

    void wrapsAtWords()
    {
        QFETCH(QString, text);
        QFETCH(int, width);
        QTEST(wrapped(text, width), "lines");
    }

    // Paragraphs of a message wrap to the width; preformatted text does not.
    void paragraphsFitTheWidth_data()
    {
        QTest::addColumn<QString>("markup");
        QTest::addColumn<QString>("shown");
        QTest::newRow("paragraph")
            << u"one two three four five six"_s << u"one two three four|five six"_s;
        QTest::newRow("link spelled out, wrapped with it")
            << u"[docs](https://e.com/d) now"_s << u"docs|(https://e.com/d)|now"_s;
        QTest::newRow("preformatted kept whole")
            << u"<pre>one two three four five six</pre>"_s << u"one two three four five six"_s;
    }

    void paragraphsFitTheWidth()
    {
        QFETCH(QString, markup);
        const Options plain{20, false, false, false};
        QTEST(Markup::AnsiWriter::render(markup, plain).replace(u'\n', u'|'), "shown");
    }

    // A right-to-left table reads from the right: its first column is drawn at the right edge.
    void tableColumns_data()
    {
        QTest::addColumn<QString>("table");
        QTest::addColumn<QString>("row"); // the first body row as drawn
        QTest::newRow("left to right") << u"| a | b |\n|---|---|\n| 1 | 2 |"_s << u"│ 1 │ 2 │"_s;
        QTest::newRow("right to left")
            << u"| שם | גיל |\n|---|---|\n| דנה | 30 |"_s << u"│ 30  │ דנה │"_s;
    }

    void tableColumns()
    {
        QFETCH(QString, table);
        const QStringList lines =
            Markup::AnsiWriter::render(table, Options{40, false, false, false}).split(u'\n');
        QCOMPARE(lines.size(), 5);
        QTEST(lines[3], "row");
    }

    void marksAndLinks_data()
    {
        QTest::addColumn<bool>("marks");
        QTest::addColumn<QString>("shown");
        QTest::newRow("pipe: no marks, URL written") << false << u"see x (https://x.org)"_s;
        QTest::newRow("--bidi: marks kept") << true << u"\u200Esee x (https://x.org)"_s;
    }

    void marksAndLinks()
    {
        QFETCH(bool, marks);
        const Options options{80, false, false, marks};
        QTEST(Markup::AnsiWriter::render(u"see [x](https://x.org)"_s, options), "shown");
    }

    void hyperlinksWhereShown_data()
    {
        QTest::addColumn<QByteArray>("term");
        QTest::addColumn<bool>("tmux");
        QTest::addColumn<bool>("shown");
        QTest::newRow("xterm") << QByteArray("xterm-256color") << false << true;
        QTest::newRow("inside tmux") << QByteArray("xterm-256color") << true << false;
        QTest::newRow("tmux's own TERM") << QByteArray("tmux-256color") << false << false;
        QTest::newRow("screen") << QByteArray("screen") << false << false;
        QTest::newRow("Linux console") << QByteArray("linux") << false << false;
        QTest::newRow("dumb") << QByteArray("dumb") << false << false;
    }

    void hyperlinksWhereShown()
    {
        QFETCH(QByteArray, term);
        QFETCH(bool, tmux);
        QTEST(RenderCommand::hyperlinksShown(term, tmux), "shown");
    }

    void closestMatch_data()
    {
        QTest::addColumn<QString>("word");
        QTest::addColumn<QString>("closest"); // empty: none close enough
        QTest::newRow("swapped letters") << u"sned"_s << u"send"_s;
        QTest::newRow("a letter missing") << u"folow"_s << u"follow"_s;
        QTest::newRow("a start") << u"out"_s << u"outbox"_s;
        QTest::newRow("too far") << u"xyz"_s << QString();
        QTest::newRow("case") << u"LOG"_s << u"log"_s;
    }

    void closestMatch()
    {
        QFETCH(QString, word);
        const QStringList subs = CommandTable::subcommands(u"chat"_s);
        QTEST(CommandTable::closest(word, subs).value_or(QString()), "closest");
    }

    // Every option a form names exists, and every form's usage names its command.
    void tableIsWhole()
    {
        for (const CommandTable::Form &form : CommandTable::forms()) {
            QVERIFY2(form.usage.startsWith(form.command), qPrintable(form.usage));
            for (const QString &name : form.options)
                QVERIFY2(CommandTable::option(name), qPrintable(form.usage + u" --"_s + name));
        }
    }

    // Text without markup takes a shorter way than blocks(); the terminal must not tell.
    void plainTextAsTheFullRenderer_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << QString();
        QTest::newRow("blank lines only") << u"  \n\t\n"_s;
        QTest::newRow("hebrew with latin") << u"שלום! קו 12 ב־07:05 to Tel Aviv, בסדר"_s;
        QTest::newRow("a tie between scripts") << u"word מילה\nשלום hello"_s;
        QTest::newRow("crlf and trailing lines") << u"one\r\ntwo\r\n\r\n  \n"_s;
        QTest::newRow("control characters") << u"a\x1b[31mred\x07 \u0085\x7f\tend\rx"_s;
        QTest::newRow("direction marks in the text") << u"\u200fabc \u2067def\u2069 \u202e"_s;
        QTest::newRow("long word") << u"%1 and more"_s.arg(QString(70, u'w'));
        QTest::newRow("wide and combining") << u"漢字 \U0001F600 e\u0301 \u05b0"_s;
        QTest::newRow("unpaired surrogates") << u"a"_s + QChar(0xD800) + u"b"_s + QChar(0xDC00);
        QTest::newRow("bold") << u"the **07:35** bus"_s;
        QTest::newRow("link") << u"see the [report](https://example.com/r)"_s;
        QTest::newRow("bare link") << u"at https://example.com/p?q=1 now"_s;
        QTest::newRow("code") << u"run <code>ls -l</code> &amp; see"_s;
        QTest::newRow("table") << u"| a | b |\n|---|---|\n| 1 | 2 |"_s;
        QTest::newRow("escape") << u"\\[not a link\\]"_s;
    }

    void plainTextAsTheFullRenderer()
    {
        QFETCH(QString, text);
        for (const int width : {1, 12, 40, 100}) {
            for (int flags = 0; flags < 8; ++flags) {
                const Options o{width, bool(flags & 1), bool(flags & 2), bool(flags & 4)};
                QCOMPARE(Markup::AnsiWriter::render(text, o),
                         Markup::AnsiWriter::write(Markup::blocks(text), o));
            }
        }
    }

    void logEntries_data()
    {
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("taskNo");
        QTest::addColumn<QString>("entry"); // after "#7 [2024-03-01 12:34] "
        const QString a = QString(30, u'a'), b = QString(30, u'b');
        const QString letters = u"a b c d e f g h i j k l m n o p"_s;
        QTest::newRow("user, short") << u"user"_s << u"hi"_s << QString() << u"You: hi"_s;
        QTest::newRow("agent with a task")
            << u"assistant"_s << u"**done**"_s << u"12"_s << u"Agent · task 12: done"_s;
        QTest::newRow("long body below the heading")
            << u"user"_s << letters << QString() << u"You:\n"_s + letters;
        QTest::newRow("the user's long line wrapped at words")
            << u"user"_s << a + u' ' + b << QString() << u"You:\n%1\n%2"_s.arg(a, b);
    }

    void logEntries()
    {
        QFETCH(QString, role);
        QFETCH(QString, text);
        QFETCH(QString, taskNo);
        qputenv("TZ", "UTC");
        ChatMessage m = ChatMessage::make(role, text, 1709296440); // 2024-03-01 12:34 UTC
        m.seq = 7;
        if (!taskNo.isEmpty())
            m.taskNo = taskNo;
        ChatLog::Clock clock;
        QFETCH(QString, entry);
        QCOMPARE(ChatLog::entry(m, ChatLog::facts(Options{50, false, false, false}), clock),
                 u"#7 [2024-03-01 12:34] "_s + entry);
    }

    void clockAcrossZones_data()
    {
        QTest::addColumn<QByteArray>("zone");
        QTest::addColumn<qint64>("millis");
        QTest::addColumn<QString>("stamp");
        QTest::newRow("epoch") << QByteArray("UTC") << qint64(0) << u"1970-01-01 00:00"_s;
        QTest::newRow("east of UTC")
            << QByteArray("Asia/Jerusalem") << qint64(1709296440000) << u"2024-03-01 14:34"_s;
        QTest::newRow("summer time")
            << QByteArray("Asia/Jerusalem") << qint64(1719837240000) << u"2024-07-01 15:34"_s;
        QTest::newRow("before 1970")
            << QByteArray("UTC") << qint64(-60000) << u"1969-12-31 23:59"_s;
    }

    void clockAcrossZones()
    {
        QFETCH(QByteArray, zone);
        QFETCH(qint64, millis);
        qputenv("TZ", zone);
        ChatLog::Clock clock;
        QTEST(clock.stamp(millis), "stamp");
    }

    void chosenMessages_data()
    {
        QTest::addColumn<int>("since"); // -1: not given
        QTest::addColumn<int>("limit"); // 0: not given
        QTest::addColumn<QList<qint64>>("seqs");
        QTest::newRow("all") << -1 << 0 << QList<qint64>{1, 2, 3, 4};
        QTest::newRow("since") << 2 << 0 << QList<qint64>{3, 4};
        QTest::newRow("limit keeps the newest") << -1 << 3 << QList<qint64>{2, 3, 4};
        QTest::newRow("both") << 1 << 1 << QList<qint64>{4};
        QTest::newRow("since past the end") << 9 << 0 << QList<qint64>{};
    }

    void chosenMessages()
    {
        QFETCH(int, since);
        QFETCH(int, limit);
        QList<ChatMessage> all;
        for (qint64 seq = 1; seq <= 4; ++seq) {
            all.append(ChatMessage::make(u"user"_s, u"x"_s, 0));
            all.last().seq = seq;
        }
        const MessageList list(all); // chosen() points into it
        QList<qint64> seqs;
        for (const ChatMessage *m :
             ChatLog::chosen(list, since < 0 ? std::nullopt : std::optional<qint64>(since),
                             limit ? std::optional(limit) : std::nullopt))
            seqs << m->seq;
        QTEST(seqs, "seqs");
    }
};

QTEST_GUILESS_MAIN(TerminalLayoutTest)
#include "terminallayouttest.moc"
