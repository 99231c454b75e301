// Background transfers against the reference service: receipts kept and reused, one request
// per key, replies lost on the way, an earlier run's answers found. Kills are in the CLI test.

#include "chat/transfer/chatbackgroundtransfer.h"
#include "net/api.h"
#include "platform/atomicfile.h"
#include "support/chatharness.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

using namespace std::chrono_literals;

namespace {

QString chatKey(const QString &id)
{
    return ChatBackgroundTransfer::key(QStringLiteral("demo"), QStringLiteral("chat"), id);
}

// One background chat post, named after its request id.
QCoro::Task<QJsonObject> send(Api &api, QString id, QString text = QStringLiteral("hi"))
{
    Api::Options options;
    options.backgroundID = chatKey(id);
    QJsonObject body;
    body.insert(QStringLiteral("text"), text);
    body.insert(QStringLiteral("client_request_id"), id);
    co_return co_await api.post(QStringLiteral("webapi/chat"), body, options);
}

QByteArray fileBytes(const QString &path)
{
    return AtomicFile::read(path).value_or(QByteArray());
}

} // namespace

class ChatBackgroundTransferTest : public QObject, public ChatHarness
{
    Q_OBJECT

    std::unique_ptr<ChatBackgroundTransfer> transfer;

    int chatRequests() { return int(service.requests(QStringLiteral("webapi/chat")).size()); }
    qsizetype messages() { return service.messages().size(); }

    QString bodyPath(const QString &key) const
    {
        return QDir(transfer->folder(key)).filePath(QStringLiteral("request.body"));
    }

    void fault(QJsonObject fault)
    {
        fault.insert(QStringLiteral("match"), QStringLiteral("webapi/chat"));
        service.fault(fault);
    }

private slots:
    void initTestCase() { QVERIFY2(service.running(), "the reference service did not start"); }

    void init()
    {
        transfer.reset();
        freshStart({{"mode", "silent"}});
        service.clearLog();
        sleeper.requested.clear();
        transfer = std::make_unique<ChatBackgroundTransfer>(identity.api(), sleeper);
    }

    void cleanup() { transfer.reset(); }

    // A newer instance going must hand background sends back to the older one.
    void registersAsTheOneInstance()
    {
        { ChatBackgroundTransfer newer(identity.api(), sleeper); }
        QCOMPARE(ChatBackgroundTransfer::shared(), transfer.get());
        Sync::run(send(identity.api(), QStringLiteral("t0")));
        QVERIFY(transfer->stored(chatKey(QStringLiteral("t0"))));
    }

    void answersFromTheReceiptWithoutSending()
    {
        const QString key = chatKey(QStringLiteral("t1"));
        const QJsonObject first = Sync::run(send(identity.api(), QStringLiteral("t1")));
        // The body sent is the body kept, byte for byte.
        const QJsonArray log = service.log();
        QCOMPARE(log.size(), 1);
        QCOMPARE(QByteArray::fromBase64(log[0][u"body_b64"].toString().toLatin1()),
                 fileBytes(bodyPath(key)));
        QCOMPARE(transfer->stored(key)->status, 200);
        QCOMPARE(QJsonDocument::fromJson(transfer->stored(key)->data).object(), first);

        // Again, and again after a restart: the kept answer, nothing on the wire.
        service.clearLog();
        QCOMPARE(Sync::run(send(identity.api(), QStringLiteral("t1"), QStringLiteral("changed"))), first);
        transfer = std::make_unique<ChatBackgroundTransfer>(identity.api(), sleeper);
        QCOMPARE(Sync::run(send(identity.api(), QStringLiteral("t1"), QStringLiteral("changed"))), first);
        QVERIFY(service.log().isEmpty());
        QCOMPARE(messages(), 1);
    }

    void handWrittenReceipts_data()
    {
        QTest::addColumn<QByteArray>("receipt");
        QTest::addColumn<bool>("sends");
        const QByteArray answer = QByteArray("{\"ok\":true,\"user_seq\":41}").toBase64();
        QTest::newRow("earlier run's answer")
            << "{\"status\":200,\"data\":\"" + answer + "\"}" << false;
        QTest::newRow("empty body") << QByteArray("{\"status\":204,\"data\":\"\"}") << false;
        QTest::newRow("truncated") << QByteArray("{\"status\":200,\"da") << true;
        QTest::newRow("data not base64") << QByteArray("{\"status\":200,\"data\":\"%%%\"}") << true;
    }

    void handWrittenReceipts()
    {
        QFETCH(QByteArray, receipt);
        QFETCH(bool, sends);
        const QString key = chatKey(QStringLiteral("t2"));
        QVERIFY(AtomicFile::write(
            QDir(transfer->folder(key)).filePath(QStringLiteral("receipt.json")), receipt));
        if (sends)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("unreadable receipt"));
        Sync::run(send(identity.api(), QStringLiteral("t2")));
        QCOMPARE(chatRequests(), sends ? 1 : 0);
        if (sends) // the unreadable receipt gave way to the real answer
            QCOMPARE(transfer->stored(key)->status, 200);
    }

    void performsOfOneKeyShareOneRequest_data()
    {
        QTest::addColumn<QString>("secondId");
        QTest::addColumn<int>("requests");
        QTest::newRow("same key") << "a" << 1;
        QTest::newRow("different keys") << "b" << 2;
    }

    void performsOfOneKeyShareOneRequest()
    {
        QFETCH(QString, secondId);
        QFETCH(int, requests);
        fault({{"status", QJsonValue::Null}, {"delay", 0.3}, {"times", -1}});
        QJsonObject first;
        QJsonObject second;
        auto both = [&]() -> QCoro::Task<> {
            // Both start at once: a task runs up to its first wait when it is made.
            QCoro::Task<QJsonObject> a = send(identity.api(), QStringLiteral("a"));
            QCoro::Task<QJsonObject> b = send(identity.api(), secondId);
            first = co_await a;
            second = co_await b;
        };
        QCoro::Task<> running = both();
        QVERIFY(transfer->running(chatKey(QStringLiteral("a"))));
        Sync::run(std::move(running));
        QVERIFY(!transfer->running(chatKey(QStringLiteral("a"))));
        QCOMPARE(chatRequests(), requests);
        QCOMPARE(messages(), requests);
        QCOMPARE(first == second, requests == 1);
    }

    void aFailedAnswerIsJudgedButNeverReplayed_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("description");
        QTest::newRow("edge down") << 502 << QString() << "HTTP 502";
        QTest::newRow("gone task") << 409
                                   << R"({"error":"reply_target_not_found","detail":"No task"})"
                                   << "No task";
        QTest::newRow("signed out") << 401 << QString() << "unauthorized";
    }

    // A failure is kept like any answer, but the next attempt asks the server again.
    void aFailedAnswerIsJudgedButNeverReplayed()
    {
        QFETCH(int, status);
        QFETCH(QString, body);
        QFETCH(QString, description);
        fault(body.isEmpty() ? QJsonObject{{"status", status}}
                             : QJsonObject{{"status", status}, {"body", body}});
        QString outcome;
        try {
            Sync::run(send(identity.api(), QStringLiteral("t3")));
        } catch (const Api::Failed &failed) {
            outcome = failed.description();
        } catch (const Api::Unauthorized &) {
            outcome = QStringLiteral("unauthorized");
        }
        QCOMPARE(outcome, description);
        QCOMPARE(transfer->stored(chatKey(QStringLiteral("t3")))->status, status);
        if (status == 401)
            identity.signIn();
        Sync::run(send(identity.api(), QStringLiteral("t3")));
        QCOMPARE(chatRequests(), 2);
        QCOMPARE(transfer->stored(chatKey(QStringLiteral("t3")))->status, 200);
    }

    void noReplyLeavesNoReceipt_data()
    {
        QTest::addColumn<QJsonObject>("cause");
        QTest::addColumn<int>("storedOnServer");
        QTest::newRow("dropped") << QJsonObject{{"drop", true}, {"times", -1}} << 0;
        QTest::newRow("reply lost") << QJsonObject{{"after", "drop"}, {"times", -1}} << 1;
        QTest::newRow("cut mid-body") << QJsonObject{{"drop_mid_body", true}, {"times", -1}} << 0;
    }

    void noReplyLeavesNoReceipt()
    {
        QFETCH(QJsonObject, cause);
        QFETCH(int, storedOnServer);
        fault(cause);
        const QString key = chatKey(QStringLiteral("t4"));
        const QString text(200'000, u'x'); // big enough to be cut in the middle
        QVERIFY_THROWS_EXCEPTION(Api::TransportError, Sync::run(send(identity.api(), QStringLiteral("t4"), text)));
        QVERIFY(!transfer->stored(key));
        QVERIFY(!transfer->running(key));
        QVERIFY(!fileBytes(bodyPath(key)).isEmpty());
        QCOMPARE(messages(), storedOnServer);

        // The next attempt sends again and the server, knowing the request id, keeps one message.
        service.control("DELETE", QStringLiteral("faults"));
        QCOMPARE(Sync::run(send(identity.api(), QStringLiteral("t4"), text)).value(u"user_seq").toInt(), 1);
        QCOMPARE(messages(), 1);
        QVERIFY(transfer->stored(key));
    }

    void stoppingTheManagerReleasesItsCallers()
    {
        fault({{"status", QJsonValue::Null}, {"delay", 2}});
        bool stopped = false;
        auto caller = [&]() -> QCoro::Task<> {
            try {
                co_await send(identity.api(), QStringLiteral("t6"));
            } catch (const Api::TransportError &) {
                stopped = true;
            }
        };
        QCoro::Task<> running = caller();
        const QString body = bodyPath(chatKey(QStringLiteral("t6")));
        transfer.reset();
        QTRY_VERIFY(stopped);
        QVERIFY(QFile::exists(body)); // for the next run to send again
    }

    void discardAndAcknowledgedRemoveFolders()
    {
        const QStringList ids{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")};
        for (const QString &id : ids)
            Sync::run(send(identity.api(), id));
        transfer->acknowledged({chatKey(ids[0]), chatKey(ids[1]), chatKey(QStringLiteral("x"))});
        QVERIFY(!QDir(transfer->folder(chatKey(ids[0]))).exists());
        QVERIFY(!QDir(transfer->folder(chatKey(ids[1]))).exists());
        QVERIFY(transfer->stored(chatKey(ids[2])));
        transfer->discard(chatKey(ids[2]));
        QVERIFY(!QDir(transfer->folder(chatKey(ids[2]))).exists());
    }

    void largeUploadReportsProgress()
    {
        QByteArray data(3 * 1024 * 1024, '\0');
        for (qsizetype i = 0; i < data.size(); ++i)
            data[i] = char(i * 31 % 251);
        const QString key = ChatBackgroundTransfer::key(QStringLiteral("demo"),
                                                        QStringLiteral("upload"),
                                                        QStringLiteral("f1"));
        QSignalSpy progress(transfer.get(), &ChatBackgroundTransfer::progress);
        Api::Options options;
        options.backgroundID = key;
        // Named: GCC 12 destroys brace-built aggregate arguments of a coroutine twice.
        const Api::Upload upload{{QStringLiteral("file"), QStringLiteral("big.bin"),
                                  QStringLiteral("application/octet-stream"), data},
                                 {{QStringLiteral("client_request_id"), QStringLiteral("f1")}}};
        const Api::Reply reply =
            Sync::run(identity.api().upload(QStringLiteral("webapi/upload"), upload, options));
        QCOMPARE(QJsonDocument::fromJson(reply.data)[u"sha256"].toString(),
                 QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());

        // Progress of the body file as sent, never going back, to its last byte.
        const qint64 bodySize = QFileInfo(bodyPath(key)).size();
        QVERIFY(bodySize > data.size());
        qint64 previous = 0;
        for (const QList<QVariant> &step : progress) {
            QCOMPARE(step[0].toString(), key);
            QVERIFY(step[1].toLongLong() >= previous);
            QCOMPARE(step[2].toLongLong(), bodySize);
            previous = step[1].toLongLong();
        }
        QCOMPARE(previous, bodySize);
    }

};

QTEST_GUILESS_MAIN(ChatBackgroundTransferTest)
#include "chatbackgroundtransfertest.moc"
