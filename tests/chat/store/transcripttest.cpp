// The transcript's one-pass reader against the rules a parsed document follows.

#include "chat/store/transcript.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

class TranscriptTest : public QObject
{
    Q_OBJECT

private slots:
    void decode_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("read"); // false: not a transcript at all
        QTest::addColumn<qint64>("firstSeq");
        QTest::addColumn<QString>("firstText");
        QTest::addColumn<qint64>("cachedSeq");
        const QByteArray head = QByteArray("{\"version\":1,\"cachedSeq\":7,\"messages\":");
        const auto read = [&](const char *name, const QByteArray &messages, qint64 seq,
                              const QString &text, const QByteArray &whole = {}) {
            QTest::newRow(name) << (whole.isEmpty() ? head + messages + "}" : whole) << true << seq
                                << text << qint64(whole.isEmpty() ? 7 : 12);
        };
        const auto refused = [&](const char *name, const QByteArray &bytes) {
            QTest::newRow(name) << bytes << false << qint64(0) << QString() << qint64(0);
        };
        read("escapes and Hebrew",
             "[{\"seq\":3,\"role\":\"user\",\"text\":\"a\\\"b\\\\c\\n\\u05e9\\ud83d\\ude00/\"}]", 3,
             QStringLiteral("a\"b\\c\nש😀/"));
        read("wrong-typed key takes its default",
             "[{\"seq\":2,\"role\":5,\"text\":\"kept\",\"source\":[1]}]", 2,
             QStringLiteral("kept"));
        read("seq out of range", "[{\"seq\":1e16,\"text\":\"x\"}]", 0, QStringLiteral("x"));
        read("not an object is left out",
             "[3,\"x\",{\"seq\":4,\"text\":\"y\",\"extra\":{\"a\":[1,{\"b\":\"]\"}]}}]", 4,
             QStringLiteral("y"));
        read("null and an escaped key", "[{\"\\u0073eq\":5,\"text\":null}]", 5, QString());
        read("last repeated key wins", "[{\"seq\":1,\"seq\":6,\"text\":\"z\"}]", 6,
             QStringLiteral("z"));
        read("keys in any order", {}, 1, QString(),
             " {\"messages\":[{\"seq\":1}], \"cachedSeq\":\"12\", \"version\":1} ");
        read("control byte in a string", "[{\"text\":\"a\x01\"}]", 0, QStringLiteral("a\x01"));
        refused("wrong version", "{\"version\":2,\"messages\":[]}");
        refused("cut short", head + "[{\"seq\":1,\"text\":\"ab");
        refused("trailing bytes", head + "[]}x");
        refused("bad number", head + "[{\"seq\":01}]}");
        refused("not UTF-8", head + "[{\"text\":\"\xff\"}]}");
    }

    void decode()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, read);
        const auto contents = Transcript::decode(bytes, 1.7e9);
        // A parser agrees on what is JSON at all.
        QCOMPARE(QJsonDocument::fromJson(bytes).isNull(), !read && !bytes.contains("version\":2"));
        QCOMPARE(bool(contents), read);
        if (!read)
            return;
        QCOMPARE(contents->messages.size(), 1);
        QTEST(contents->messages.first().seq, "firstSeq");
        QTEST(contents->messages.first().text, "firstText");
        QTEST(contents->cachedSeq, "cachedSeq");
    }

    // What encode writes comes back field for field, attachments included.
    void roundTrip()
    {
        ChatMessage m = ChatMessage::make(QStringLiteral("assistant"), QStringLiteral("**hi**\t\"x\""), 1.7e9);
        m.seq = 9;
        m.taskNo = QStringLiteral("p-12");
        m.attachments = QList<ChatAttachment>{{QStringLiteral("f1"), QStringLiteral("a.pdf"),
                                               QStringLiteral("application/pdf"), 12, {}, {}}};
        Transcript::Contents contents;
        contents.messages.append(std::make_shared<const ChatMessage>(m));
        contents.cachedSeq = 9;
        const auto back = Transcript::decode(Transcript::encode(contents), 1.7e9);
        QVERIFY(back);
        QVERIFY(back->messages.first() == m);
    }
};

QTEST_GUILESS_MAIN(TranscriptTest)
#include "transcripttest.moc"
