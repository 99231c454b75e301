// The interactive chat's keyboard and commands, without a terminal: bytes as terminals send
// them (cut anywhere between reads), the line they edit, and the slash commands typed.

#include "chatlines.h"
#include "keydecoder.h"
#include "lineeditor.h"
#include "slashcommand.h"

#include "text/l.h"

#include <QTest>

using namespace Qt::StringLiterals;
using K = SlashCommand::Kind;

Q_DECLARE_METATYPE(SlashCommand)

class ChatInputTest : public QObject
{
    Q_OBJECT

    // The text a line editor holds after the bytes arrive in pieces of `chunk` bytes.
    static LineEditor typed(const QByteArray &bytes, qsizetype chunk,
                            QList<LineEditor::Outcome> *outcomes = nullptr)
    {
        KeyDecoder decoder;
        LineEditor editor;
        for (qsizetype at = 0; at < bytes.size(); at += chunk) {
            for (const Key &key : decoder.feed(bytes.mid(at, chunk))) {
                const LineEditor::Outcome outcome = editor.apply(key);
                if (outcomes && outcome != LineEditor::Outcome::Editing)
                    outcomes->append(outcome);
            }
        }
        return editor;
    }

private slots:
    void initTestCase() { L::pin(u"en"_s); }

    // Which state a turn in the outbox is shown in decides what the user does next.
    void pendingTurns_data()
    {
        QTest::addColumn<bool>("refused");
        QTest::addColumn<bool>("processing");
        QTest::addColumn<bool>("online");
        QTest::addColumn<bool>("lastAttemptOffline");
        QTest::addColumn<QString>("starts");
        QTest::newRow("sending") << false << false << true << false << u"⏳ sending"_s;
        QTest::newRow("no network") << false << false << false << false << u"⏸ kept"_s;
        QTest::newRow("no server") << false << false << true << true << u"⏸ kept"_s;
        QTest::newRow("accepted") << false << true << true << false << u"✓ accepted"_s;
        QTest::newRow("refused beats the rest") << true << false << false << true << u"⚠ refused"_s;
    }

    void pendingTurns()
    {
        QFETCH(bool, refused);
        QFETCH(bool, processing);
        QFETCH(bool, online);
        QFETCH(bool, lastAttemptOffline);
        QFETCH(QString, starts);
        PendingTurn turn;
        turn.id = u"0123456789abcdef"_s;
        turn.text = u"\x1b]0;title\x07line one\nline two"_s;
        turn.refused = refused;
        turn.processing = processing;
        turn.online = online;
        turn.reason = u"Not like this"_s;
        const QStringList lines = ChatLines::pending(turn, lastAttemptOffline);
        QVERIFY2(lines.first().startsWith(starts), qPrintable(lines.first()));
        QVERIFY(
            !lines.join(u'\n').contains(QChar(0x1b))); // server text never reaches the terminal raw
        if (refused) {
            QCOMPARE(lines.at(1).trimmed(), u"Not like this"_s);
            QCOMPARE(lines.at(2).trimmed(), u"/retry 01234567 · /discard 01234567"_s);
        }
    }

    void slashCommands_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<SlashCommand>("expected");
        auto row = [](const char *name, const QString &line, K kind, const QString &argument = {},
                      qint64 number = 0) {
            QTest::newRow(name) << line << SlashCommand{kind, argument, number};
        };
        row("text", u"hello"_s, K::Message, u"hello"_s);
        row("a path is text", u"/usr/bin is full"_s, K::Message, u"/usr/bin is full"_s);
        row("double slash", u"//stop 3"_s, K::Message, u"/stop 3"_s);
        row("help", u"/help"_s, K::Help);
        row("quit, any case, spaces", u"  /QUIT "_s, K::Quit);
        row("quit with words", u"/quit now"_s, K::Malformed, u"quit"_s);
        row("retry", u"/retry 3f2a"_s, K::Retry, u"3f2a"_s);
        row("retry without id", u"/retry"_s, K::Malformed, u"retry"_s);
        row("retry two ids", u"/retry a b"_s, K::Malformed, u"retry"_s);
        row("discard", u"/discard  abc "_s, K::Discard, u"abc"_s);
        row("stop", u"/stop 12"_s, K::Stop, {}, 12);
        row("stop #", u"/stop #7"_s, K::Stop, {}, 7);
        row("stop zero", u"/stop 0"_s, K::Malformed, u"stop"_s);
        row("stop word", u"/stop all"_s, K::Malformed, u"stop"_s);
        row("stop too big", u"/stop 99999999999"_s, K::Malformed, u"stop"_s);
        row("reply", u"/reply 99999999999"_s, K::Reply, {}, 99999999999);
        row("reply plus sign", u"/reply +4"_s, K::Malformed, u"reply"_s);
        row("file with spaces", u"/file my notes.txt"_s, K::File, u"my notes.txt"_s);
        row("file quoted", u"/file '/tmp/a b.pdf'"_s, K::File, u"/tmp/a b.pdf"_s);
        row("file without path", u"/file"_s, K::Malformed, u"file"_s);
        row("unknown", u"/frobnicate x"_s, K::Unknown, u"frobnicate"_s);
    }

    void slashCommands()
    {
        QFETCH(QString, line);
        QFETCH(SlashCommand, expected);
        const SlashCommand got = SlashCommand::parse(line);
        QCOMPARE(int(got.kind), int(expected.kind));
        QCOMPARE(got.argument, expected.argument);
        QCOMPARE(got.number, expected.number);
    }

    void turnIDs_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("expected"); // empty: no single match
        QTest::newRow("whole") << u"ab12"_s << u"ab12"_s;
        QTest::newRow("whole, also a prefix of another") << u"ab"_s << u"ab"_s;
        QTest::newRow("unique prefix") << u"c"_s << u"cd34"_s;
        QTest::newRow("ambiguous") << u"a"_s << QString();
        QTest::newRow("none") << u"zz"_s << QString();
        QTest::newRow("empty") << QString() << QString();
    }

    void turnIDs()
    {
        QFETCH(QString, given);
        QFETCH(QString, expected);
        const auto got = SlashCommand::matchID({u"ab12"_s, u"ab"_s, u"cd34"_s}, given);
        QCOMPARE(got.value_or(QString()), expected);
    }

    void keys_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("cursor");
        QTest::newRow("utf-8") << QByteArray("שלום 😀") << u"שלום 😀"_s << 7;
        QTest::newRow("backspace over an emoji") << QByteArray("a😀\x7f") << u"a"_s << 1;
        QTest::newRow("arrows and insert") << QByteArray("ac\x1b[Db") << u"abc"_s << 2;
        QTest::newRow("keypad arrows") << QByteArray("ac\x1bODb") << u"abc"_s << 2;
        QTest::newRow("home, delete") << QByteArray("xabc\x01\x1b[3~") << u"abc"_s << 0;
        QTest::newRow("alt-enter is a line break") << QByteArray("a\x1b\rb") << u"a\nb"_s << 3;
        QTest::newRow("ctrl-j is a line break") << QByteArray("a\nb") << u"a\nb"_s << 3;
        QTest::newRow("kill word") << QByteArray("one two\x17") << u"one "_s << 4;
        QTest::newRow("kill to start") << QByteArray("one two\x1b[D\x1b[D\x15") << u"wo"_s << 0;
        QTest::newRow("kill to end") << QByteArray("one two\x01\x1b[1;5C\x0b") << u"one"_s << 3;
        QTest::newRow("unknown sequence ignored") << QByteArray("a\x1b[15~b") << u"ab"_s << 2;
        QTest::newRow("paste keeps line breaks and escapes as text")
            << QByteArray("x\x1b[200~l1\rl2\r\n\x1b[31m\x1b[201~y") << u"xl1\nl2\n\x1b[31my"_s
            << 13;
        QTest::newRow("ctrl-d inside text deletes") << QByteArray("ab\x02\x04") << u"a"_s << 1;
    }

    void keys()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, text);
        QFETCH(int, cursor);
        // Whole, and one byte per read: a sequence cut between reads means the same.
        for (const qsizetype chunk : {bytes.size(), qsizetype(1)}) {
            const LineEditor editor = typed(bytes, chunk);
            QCOMPARE(editor.text(), text);
            QCOMPARE(editor.cursor(), cursor);
        }
    }

    void outcomes()
    {
        QList<LineEditor::Outcome> got;
        typed("hi\r\x03\x0c", 1, &got);
        QCOMPARE(got, (QList{LineEditor::Outcome::Submit, LineEditor::Outcome::Interrupt,
                             LineEditor::Outcome::Redraw}));
        got.clear();
        typed("\x04", 1, &got);
        QCOMPARE(got, QList{LineEditor::Outcome::EndOfInput});
    }

    void longPasteInPieces()
    {
        // Bigger than any terminal line buffer, split where the end marker itself is cut.
        const QByteArray body = QByteArray(12000, 'p');
        const QByteArray bytes = "\x1b[200~" + body + "\x1b[201~";
        KeyDecoder decoder;
        QList<Key> keys = decoder.feed(bytes.left(9000));
        keys += decoder.feed(bytes.mid(9000, bytes.size() - 9000 - 3));
        QVERIFY(keys.isEmpty());
        QVERIFY(decoder.inPaste());
        keys += decoder.feed(bytes.right(3));
        QCOMPARE(keys.size(), 1);
        QCOMPARE(keys.first().kind, Key::Kind::Paste);
        QCOMPARE(keys.first().text.size(), body.size());
    }

    void loneEscape()
    {
        KeyDecoder decoder;
        QVERIFY(decoder.feed("\x1b").isEmpty());
        QVERIFY(decoder.waitingOnEscape());
        decoder.flushEscape();
        const QList<Key> keys = decoder.feed("b");
        QCOMPARE(keys, (QList<Key>{{Key::Kind::Text, u"b"_s}}));
    }

    void history()
    {
        LineEditor editor;
        editor.setText(u"first"_s);
        editor.take();
        editor.setText(u"second"_s);
        editor.take();
        editor.apply({Key::Kind::Text, u"draft"_s});
        editor.apply({Key::Kind::Up, {}});
        QCOMPARE(editor.text(), u"second"_s);
        editor.apply({Key::Kind::Up, {}});
        editor.apply({Key::Kind::Up, {}}); // past the oldest: stays there
        QCOMPARE(editor.text(), u"first"_s);
        editor.apply({Key::Kind::Down, {}});
        editor.apply({Key::Kind::Down, {}});
        QCOMPARE(editor.text(), u"draft"_s); // what was being typed comes back
    }

    void view_data()
    {
        // Ten columns, at most two rows.
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("left");     // the cursor moves this far left from the end
        QTest::addColumn<QString>("rows"); // joined by "|"
        QTest::addColumn<int>("row");
        QTest::addColumn<int>("column");
        QTest::newRow("fits") << u"hello"_s << 0 << u"hello"_s << 0 << 5;
        QTest::newRow("line break") << u"a\nb"_s << 0 << u"a|b"_s << 1 << 1;
        QTest::newRow("wraps") << u"abcdefghijklmnop"_s << 0 << u"abcdefghij|klmnop"_s << 1 << 6;
        QTest::newRow("full row, cursor on the next")
            << u"abcdefghij"_s << 0 << u"abcdefghij|"_s << 1 << 0;
        QTest::newRow("taller, cursor at the end")
            << u"abcdefghijklmnopqrstuvwxy"_s << 0 << u"klmnopqrst|uvwxy"_s << 1 << 5;
        QTest::newRow("taller, cursor at the start")
            << u"abcdefghijklmnopqrstuvwxy"_s << 25 << u"abcdefghij|klmnopqrst"_s << 0 << 0;
        QTest::newRow("wide characters")
            << u"日本語テキスト"_s << 0 << u"日本語テキ|スト"_s << 1 << 4;
        QTest::newRow("escape made visible") << u"\x1b[2J"_s << 0 << u"␛[2J"_s << 0 << 4;
    }

    void view()
    {
        QFETCH(QString, text);
        QFETCH(int, left);
        QFETCH(QString, rows);
        QFETCH(int, row);
        QFETCH(int, column);
        LineEditor editor;
        editor.setText(text);
        for (int i = 0; i < left; ++i)
            editor.apply({Key::Kind::Left, {}});
        const LineEditor::View v = editor.view(10, 2);
        QCOMPARE(v.rows.join(u'|'), rows);
        QCOMPARE(v.cursorRow, row);
        QCOMPARE(v.cursorColumn, column);
    }
};

QTEST_GUILESS_MAIN(ChatInputTest)
#include "chatinputtest.moc"
