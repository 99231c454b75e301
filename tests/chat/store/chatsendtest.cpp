// Sending against the reference service: nothing the user sends is lost, and each turn
// reaches the server exactly once, whatever fails on the way.

#include "chat/transfer/chatbackgroundtransfer.h"
#include "chat/outbox/chatoutbox.h"
#include "support/chatharness.h"
#include "net/api.h"
#include "net/identity.h"
#include "support/sync.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QTest>

using namespace std::chrono_literals;

class ChatSendTest : public QObject, public ChatHarness
{
    Q_OBJECT

    std::unique_ptr<ChatBackgroundTransfer> transfers;

    int requests(const QString &path) { return int(service.requests(path).size()); }

    OutboxState onDisk()
    {
        ChatOutbox outbox(QStringLiteral("demo"));
        outbox.load();
        return outbox.state();
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
    }

    void init()
    {
        clock.setNow(FakeClock().now());
        transfers.reset();
        freshStart({{"mode", "silent"}});
        transfers = std::make_unique<ChatBackgroundTransfer>(identity.api(), sleeper);
        service.clearLog();
    }

    void aTurnMadeOfflineGoesOutWhenTheServerReturns()
    {
        service.fault({{"match", "*"}, {"drop", true}, {"times", -1}});
        auto store = newStore();
        const QString id = store->send(QStringLiteral("hello from the train"), false, false);
        QVERIFY(!id.isEmpty());
        // On disk before any network work.
        QCOMPARE(onDisk().turns.size(), 1);
        QCOMPARE(onDisk().turns.first().text, QStringLiteral("hello from the train"));

        const auto offline = drain(*store);
        QCOMPARE(offline.offline, 1);
        QCOMPARE(store->pendingTurns().size(), 1);
        QCOMPARE(store->pendingTurns().first().error, ChatCourier::savedForRetry());
        QCOMPARE(stored().size(), 0);

        service.control("DELETE", QStringLiteral("faults"));
        auto later = newStore(); // a later start finds it and sends it
        QCOMPARE(later->pendingTurns().size(), 1);
        const auto sent = drain(*later);
        QCOMPARE(sent.settled, 1);
        QVERIFY(later->pendingTurns().isEmpty());
        QVERIFY(onDisk().turns.isEmpty());
        QCOMPARE(stored().size(), 1);
        QCOMPARE(stored().first()[u"client_request_id"].toString(), id);
        // It left the pending list, so the conversation shows it at once, not a poll later.
        const auto shown = [&] {
            const auto messages = later->messages();
            return std::any_of(messages.begin(), messages.end(), [&](const ChatMessage &m) {
                return m.seq >= 1 && m.clientRequestID == id;
            });
        };
        QTRY_VERIFY(shown());
    }

    void aLostReplyIsSettledByTheFetchNotSentTwice()
    {
        service.fault({{"match", "webapi/chat"}, {"after", "drop"}, {"times", -1}});
        auto store = newStore();
        store->send(QStringLiteral("did you get this?"), false, false);
        QCOMPARE(drain(*store).offline, 1);
        QCOMPARE(stored().size(), 1); // the server has it; the reply never came back
        service.control("DELETE", QStringLiteral("faults"));

        Sync::run(store->load());
        QVERIFY(store->pendingTurns().isEmpty());
        QVERIFY(onDisk().turns.isEmpty());
        const int posts = requests(QStringLiteral("webapi/chat"));
        drain(*store);
        QCOMPARE(requests(QStringLiteral("webapi/chat")), posts);
        QCOMPARE(stored().size(), 1);
    }

    // A refused turn waits for Retry without blocking the one behind it; a garbage answer
    // refuses its turn alone, and Retry posts again rather than read that answer back.
    void aRefusedTurnWaitsForRetryAlone_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("reason");
        QTest::newRow("refused") << 400 << R"({"error":"bad","detail":"Nope."})"
                                 << ChatCourier::savedForRetry() << "Nope.";
        QTest::newRow("no ids") << 200 << R"({"ok":true})" << ChatCourier::notConfirmed()
                                << QString();
        QTest::newRow("not JSON") << 200 << "<html>oops</html>" << ChatCourier::notConfirmed()
                                  << QString();
    }

    void aRefusedTurnWaitsForRetryAlone()
    {
        QFETCH(int, status);
        QFETCH(QString, body);
        service.fault({{"match", "webapi/chat"}, {"status", status}, {"body", body}});
        auto store = newStore();
        const QString first = store->send(QStringLiteral("first"), false, false);
        store->send(QStringLiteral("second"), false, false);
        const auto summary = drain(*store);
        QCOMPARE(summary.refused, 1);
        QCOMPARE(summary.settled, 1);
        QCOMPARE(store->pendingTurns().size(), 1);
        const auto turn = store->pendingTurns().first();
        QCOMPARE(turn.id, first);
        QVERIFY(turn.refused);
        QTEST(turn.error, "error");
        QTEST(turn.reason, "reason");

        const int posts = requests(QStringLiteral("webapi/chat"));
        drain(*store);
        QCOMPARE(requests(QStringLiteral("webapi/chat")), posts); // not sent again by a drain
        QCOMPARE(Sync::run(store->retry(first)), Delivery::Settled);
        QVERIFY(store->pendingTurns().isEmpty());
        QCOMPARE(stored().size(), 2);
    }

    // One failed answer never stands in for the next attempt: after recovery every turn goes.
    void afterAFailureEveryTurnGoesOut_data()
    {
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<bool>("byRetry");
        QTest::addColumn<int>("uploads");
        const QJsonObject busy{{"match", "webapi/upload"}, {"status", 503}};
        // Twice: once more after the in-attempt pause.
        const QJsonObject chatBusy{{"match", "webapi/chat"}, {"status", 503}, {"times", 2}};
        QTest::newRow("upload 503, next drain") << busy << false << 2;
        QTest::newRow("upload 503, retry") << busy << true << 2;
        QTest::newRow("chat 503, next drain") << chatBusy << false << 1;
    }

    void afterAFailureEveryTurnGoesOut()
    {
        QFETCH(QJsonObject, fault);
        QFETCH(bool, byRetry);
        QFETCH(int, uploads);
        service.fault(fault);
        auto store = newStore();
        QVERIFY(store->attach(QStringLiteral("a.txt"), QStringLiteral("text/plain"), "bytes"));
        const QString withFile = store->send(QStringLiteral("with a file"), false, false);
        store->send(QStringLiteral("text behind it"), false, false);
        QCOMPARE(drain(*store).offline, 2);
        QCOMPARE(store->pendingTurns().size(), 2);
        if (byRetry)
            QCOMPARE(Sync::run(store->retry(withFile)), Delivery::Settled);
        drain(*store);
        QVERIFY(store->pendingTurns().isEmpty());
        QCOMPARE(stored().size(), 2);
        QCOMPARE(requests(QStringLiteral("webapi/upload")), uploads);
    }

    void stopSendsNothing()
    {
        const QJsonObject started = service.control("POST", QStringLiteral("chat"),
                                                    {{"user", "demo"}, {"text", "long job"}});
        QVERIFY(started.value(u"ok").toBool());
        auto store = newStore();
        service.clearLog();
        QVERIFY(store->send(QStringLiteral("/stop 1")).isEmpty());
        QTRY_COMPARE(requests(QStringLiteral("webapi/tasks/p-1/stop")), 1);
        QCOMPARE(requests(QStringLiteral("webapi/chat")), 0);
        QVERIFY(onDisk().turns.isEmpty());
    }

    void aReplyToAVanishedTaskComesBackToTheComposer()
    {
        auto store = newStore();
        store->continueTask(99, QStringLiteral("the old task"));
        store->send(QStringLiteral("and one more thing"), false, false);
        store->setComposerText(QStringLiteral("typed meanwhile")); // kept, not overwritten
        drain(*store);
        QVERIFY(store->pendingTurns().isEmpty());
        QCOMPARE(store->composerText(), QStringLiteral("typed meanwhile\nand one more thing"));
        QCOMPARE(store->banner(), QStringLiteral("The task you replied to is no longer available"));
        QCOMPARE(onDisk().composerText, std::optional<QString>("typed meanwhile\nand one more thing"));
        QCOMPARE(stored().size(), 0);
    }

    void filesGoFirstThenTheText()
    {
        auto store = newStore();
        QVERIFY(store->attach(QStringLiteral("notes.txt"), QStringLiteral("text/plain"), QByteArray(40'000, 'x')));
        const QString fileID = store->composerAttachments().first().fileID;
        QVERIFY(QFile::exists(store->outbox().dataPath(fileID)));
        store->send(QStringLiteral("see the file"), false, false);
        QCOMPARE(drain(*store).settled, 1);
        const QJsonArray messages = stored();
        QCOMPARE(messages.size(), 1);
        QCOMPARE(messages.first()[u"attachments"].toArray().first()[u"name"].toString(), QStringLiteral("notes.txt"));
        QVERIFY(!QFile::exists(store->outbox().dataPath(fileID)));

        QVERIFY(!store->attachFile(QStringLiteral("/no/such/file")));
        QCOMPARE(store->sendError(), QStringLiteral("Could not save the file on this device."));
    }

    void composerIsSavedHalfASecondAfterTheLastChange()
    {
        auto store = newStore();
        sleeper.requested.clear();
        store->setComposerText(QStringLiteral("dra"));
        store->setComposerText(QStringLiteral("draft"));
        QCOMPARE(onDisk().composerText, std::nullopt);
        QCOMPARE(sleeper.requested.last(), std::chrono::milliseconds(500ms));
        sleeper.advance();
        QTRY_COMPARE(onDisk().composerText, std::optional<QString>("draft"));
        auto again = newStore();
        QCOMPARE(again->composerText(), QStringLiteral("draft"));
    }

    // Settled at the start of the next run, before any store opens; the lanes already kept
    // (a finished one here) stay.
    void aKeptAnswerSettlesWithoutSending()
    {
        auto store = newStore();
        store->handle(ChatFrame::fromJson(QJsonObject{{"type", "final"}, {"run_id", "run_old"}, {"text", "ok"}}));
        const QString id = store->send(QStringLiteral("answered before the crash"), false, false);
        store.reset();
        transfers->keep(ChatBackgroundTransfer::key(QStringLiteral("demo"), QStringLiteral("chat"), id), 200,
                        R"({"ok":true,"user_seq":7,"run_id":"run_kept"})");
        chats.resumeBackgroundTransfers(QStringLiteral("demo"));
        QVERIFY(onDisk().turns.isEmpty());
        auto next = newStore();
        QCOMPARE(next->activityHistory().size(), 1);
        QVERIFY(next->pendingTurns().isEmpty());
        QVERIFY(onDisk().turns.isEmpty());
        QCOMPARE(requests(QStringLiteral("webapi/chat")), 0);
    }

    // Transfer folders a kill left behind go at start once they are an hour old by the injected
    // clock; a folder a kept turn names stays at any age.
    void strayTransfersAreSwept_data()
    {
        QTest::addColumn<int>("hoursLater");
        QTest::addColumn<bool>("named");
        QTest::addColumn<bool>("kept");
        QTest::newRow("young: maybe another process's") << 0 << false << true;
        QTest::newRow("old and nobody's") << 2 << false << false;
        QTest::newRow("old but a kept turn's") << 2 << true << true;
    }

    void strayTransfersAreSwept()
    {
        QFETCH(int, hoursLater);
        QFETCH(bool, named);
        QString id = QStringLiteral("gone");
        if (named)
            id = newStore()->send(QStringLiteral("still waiting"), false, false);
        const QString folder = ChatBackgroundTransfer::folder(
            ChatBackgroundTransfer::key(QStringLiteral("demo"), QStringLiteral("chat"), id));
        QVERIFY(QDir().mkpath(folder));
        clock.setNow(QDateTime::currentDateTimeUtc().addSecs(hoursLater * 3600));
        chats.resumeBackgroundTransfers(QStringLiteral("demo"));
        QTEST(QFileInfo(folder).isDir(), "kept");
    }

};

QTEST_GUILESS_MAIN(ChatSendTest)
#include "chatsendtest.moc"
