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
        QTest::addColumn<int>("count"); // -1: not a transcript at all
        QTest::addColumn<qint64>("firstSeq");
        QTest::addColumn<QString>("firstText");
        QTest::addColumn<qint64>("cachedSeq");
        const QByteArray head = QByteArray("{\"version\":1,\"cachedSeq\":7,\"messages\":");
        QTest::newRow("escapes and Hebrew")
            << head + QByteArray("[{\"seq\":3,\"role\":\"user\",\"text\":\"a\\\"b\\\\c\\n\\u05e9\\ud83d\\ude00/\"}]}") << 1
            << qint64(3) << QStringLiteral("a\"b\\c\nש😀/") << qint64(7);
        QTest::newRow("wrong-typed key takes its default")
            << head + QByteArray("[{\"seq\":2,\"role\":5,\"text\":\"kept\",\"source\":[1]}]}") << 1 << qint64(2)
            << QStringLiteral("kept") << qint64(7);
        QTest::newRow("seq out of range") << head + QByteArray("[{\"seq\":1e16,\"text\":\"x\"}]}") << 1
                                          << qint64(0) << QStringLiteral("x") << qint64(7);
        QTest::newRow("not an object is left out")
            << head + QByteArray("[3,\"x\",{\"seq\":4,\"text\":\"y\",\"extra\":{\"a\":[1,{\"b\":\"]\"}]}}]}") << 1
            << qint64(4) << QStringLiteral("y") << qint64(7);
        QTest::newRow("null and an escaped key")
            << head + QByteArray("[{\"\\u0073eq\":5,\"text\":null}]}") << 1 << qint64(5) << QString() << qint64(7);
        QTest::newRow("last repeated key wins")
            << head + QByteArray("[{\"seq\":1,\"seq\":6,\"text\":\"z\"}]}") << 1 << qint64(6) << QStringLiteral("z")
            << qint64(7);
        QTest::newRow("keys in any order")
            << QByteArray(QByteArray(" {\"messages\":[{\"seq\":1}], \"cachedSeq\":\"12\", \"version\":1} ")) << 1
            << qint64(1) << QString() << qint64(12);
        QTest::newRow("wrong version") << QByteArray(QByteArray("{\"version\":2,\"messages\":[]}")) << -1
                                       << qint64(0) << QString() << qint64(0);
        QTest::newRow("cut short") << head + QByteArray("[{\"seq\":1,\"text\":\"ab") << -1 << qint64(0) << QString()
                                   << qint64(0);
        QTest::newRow("trailing bytes") << head + "[]}x" << -1 << qint64(0) << QString() << qint64(0);
        QTest::newRow("bad number") << head + QByteArray("[{\"seq\":01}]}") << -1 << qint64(0) << QString()
                                    << qint64(0);
        QTest::newRow("control byte in a string")
            << head + "[{\"text\":\"a\x01\"}]}" << 1 << qint64(0) << QStringLiteral("a\x01")
            << qint64(7);
        QTest::newRow("not UTF-8") << head + "[{\"text\":\"\xff\"}]}" << -1 << qint64(0) << QString()
                                   << qint64(0);
    }

    void decode()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, count);
        const auto contents = Transcript::decode(bytes, 1.7e9);
        // A parser agrees on what is JSON at all.
        QCOMPARE(QJsonDocument::fromJson(bytes).isNull(), !contents && count == -1 && !bytes.contains("version\":2"));
        if (count < 0) {
            QVERIFY(!contents);
            return;
        }
        QVERIFY(contents);
        QCOMPARE(contents->messages.size(), count);
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
