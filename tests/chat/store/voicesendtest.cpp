// Voice turns against the reference service: the recording is on disk before any network
// work, goes to "webapi/voice" with the fields the server expects, and leaves the outbox only
// once the server has the turn, also when it answers before it has transcribed.

#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/outbox/chatoutbox.h"
#include "support/chatharness.h"

#include <QJsonArray>
#include <QTest>

class VoiceSendTest : public QObject, public ChatHarness
{
    Q_OBJECT

    std::unique_ptr<ChatBackgroundTransfer> transfers;

    // A short, valid 16 kHz mono WAV file.
    static QByteArray note()
    {
        QByteArray wav(
            "RIFF\x00\x00\x00\x00WAVEfmt \x10\x00\x00\x00\x01\x00\x01\x00\x80\x3e\x00\x00"
            "\x00\x7d\x00\x00\x02\x00\x10\x00" "data\x40\x1f\x00\x00",
            44);
        return wav + QByteArray(8000, '\x11');
    }

    QJsonArray received()
    {
        return service.control("POST", QStringLiteral("voice/received"), {{"user", "demo"}})
            .value(u"received")
            .toArray();
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
    }

    void init()
    {
        transfers.reset();
        freshStart({{"mode", "silent"}});
        transfers = std::make_unique<ChatBackgroundTransfer>(identity.api(), sleeper);
    }

    void aVoiceTurnGoesOutOnce_data()
    {
        QTest::addColumn<int>("project");
        QTest::addColumn<int>("statusAsks"); // the server answers before it has transcribed
        QTest::addColumn<bool>("offlineFirst");
        QTest::newRow("main, answered at once") << 0 << 0 << false;
        QTest::newRow("project, answered at once") << 7 << 0 << false;
        QTest::newRow("transcribed later") << 0 << 3 << false;
        QTest::newRow("offline, then back") << 0 << 0 << true;
    }

    void aVoiceTurnGoesOutOnce()
    {
        QFETCH(int, project);
        QFETCH(int, statusAsks);
        QFETCH(bool, offlineFirst);
        const ChatScope scope = project ? ChatScope::project(project) : ChatScope::main();
        const QString conversation =
            project ? QStringLiteral("project:%1").arg(project) : QStringLiteral("main");
        service.control("POST", QStringLiteral("voice/transcript"),
                        {{"user", "demo"}, {"text", "buy milk"}});
        if (statusAsks)
            service.control("POST", QStringLiteral("voice/processing"),
                            {{"user", "demo"}, {"asks", statusAsks}});
        auto store = newStore(scope);
        const QString id = store->submitVoice(0.5f, note(), false);
        QVERIFY(!id.isEmpty());
        const OutboxTurn turn = store->outbox().state().turns.value(0);
        QCOMPARE(turn.id, id);
        QCOMPARE(turn.voiceNote->name, QStringLiteral("Voice message.wav"));
        const QString data = store->outbox().dataPath(turn.voiceNote->fileID);
        QCOMPARE(store->outbox().readData(turn.voiceNote->fileID), note());

        if (offlineFirst) {
            service.fault({{"match", "webapi/voice"}, {"drop", true}, {"times", -1}});
            QCOMPARE(drain(*store).offline, 1);
            service.control("DELETE", QStringLiteral("faults"));
            QVERIFY(QFile::exists(data)); // kept for the next drain
            QCOMPARE(stored(conversation).size(), 0);
        }
        QCOMPARE(drain(*store).settled, 1);
        QCOMPARE(store->outbox().state().turns.size(), 0);
        QVERIFY(!QFile::exists(data));
        const QJsonArray messages = stored(conversation);
        QCOMPARE(messages.size(), 1);
        QCOMPARE(messages.first()[u"text"].toString(), QStringLiteral("buy milk"));
        QCOMPARE(messages.first()[u"client_request_id"].toString(), id);

        const QJsonObject fields = received().last().toObject();
        QCOMPARE(fields.value(u"client_request_id").toString(), id);
        QCOMPARE(fields.value(u"device").toString(), QStringLiteral("iphone-native"));
        QCOMPARE(fields.value(u"submit").toString(), QStringLiteral("1"));
        QCOMPARE(fields.value(u"early_ack").toString(), QStringLiteral("1"));
        QCOMPARE(fields.value(u"reprocess").toString(), QStringLiteral("0"));
        QCOMPARE(fields.value(u"peak").toString().toDouble(), 0.5);
        QCOMPARE(fields.value(u"queued_at").toString().toDouble(), turn.created);
        QCOMPARE(fields.value(u"conversation_id").toString(), project ? conversation : QString());
        QCOMPARE(fields.value(u"project_id").toString(),
                 project ? QString::number(project) : QString());
    }

    void aRecordingThatCannotBeKept_data()
    {
        QTest::addColumn<bool>("folderRefuses");
        QTest::newRow("the outbox folder refuses") << true;
        QTest::newRow("an empty recording") << false;
    }

    void aRecordingThatCannotBeKept()
    {
        QFETCH(bool, folderRefuses);
        auto store = newStore(ChatScope::main());
        const QString folder = QDir::cleanPath(store->outbox().folder());
        if (folderRefuses) {
            // A file where the folder should be: no permission bit stops root, this does.
            QVERIFY(QDir(folder).removeRecursively());
            QVERIFY(QDir().mkpath(QFileInfo(folder).absolutePath()));
            QFile blocker(folder);
            QVERIFY(blocker.open(QIODevice::WriteOnly));
        }
        QVERIFY(store->submitVoice(0.2f, folderRefuses ? note() : QByteArray(), false).isEmpty());
        QCOMPARE(store->sendError(),
                 QStringLiteral("Could not save the recording on this device."));
        QCOMPARE(store->queuedCount(), 0);
        QCOMPARE(store->outbox().state().turns.size(), 0);
        QCOMPARE(received().size(), 0);
    }
};

QTEST_GUILESS_MAIN(VoiceSendTest)
#include "voicesendtest.moc"
