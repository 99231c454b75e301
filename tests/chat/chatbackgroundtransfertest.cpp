// Background transfers against the reference service: receipts kept and reused, one request
// per key, replies lost on the way, an earlier run's answers found, and a real process killed
// at the two points that matter.

#include "chat/chatbackgroundtransfer.h"
#include "chat/uploadmeter.h"
#include "net/api.h"
#include "net/identity.h"
#include "support/fakesleeper.h"
#include "support/service.h"
#include "support/testidentity.h"
#include "support/sync.h"
#include "support/testhome.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <cstdio>

using namespace std::chrono_literals;

namespace {

QString chatKey(const QString &id)
{
    return ChatBackgroundTransfer::key(QStringLiteral("demo"), QStringLiteral("chat"), id);
}

QJsonObject chatBody(const QString &text, const QString &id)
{
    QJsonObject body;
    body.insert(QStringLiteral("text"), text);
    body.insert(QStringLiteral("client_request_id"), id);
    return body;
}

QCoro::Task<QJsonObject> send(QString text, QString id, QString key)
{
    Api::Options options;
    options.backgroundID = key;
    co_return co_await Api::post(QStringLiteral("webapi/chat"), chatBody(text, id), options);
}

QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// What the killed child does: one background chat post, paused by HALVENMARK_PAUSE_AT.
int childRun()
{
    TestIdentity identity;
    identity.value = qEnvironmentVariable("TRANSFER_CHILD_COOKIE");
    Api::setIdentity(&identity);
    ChatBackgroundTransfer transfer;
    const QString id = qEnvironmentVariable("TRANSFER_CHILD_ID");
    try {
        Sync::run(send(QStringLiteral("from the child"), id, chatKey(id)));
    } catch (...) {
        std::fprintf(stderr, "child: the send failed\n");
        return 2;
    }
    return 0; // not paused: the parent fails the test
}

} // namespace

class ChatBackgroundTransferTest : public QObject
{
    Q_OBJECT

    Service service;
    TestIdentity identity;
    FakeSleeper sleeper;
    std::unique_ptr<TestHome> home;
    std::unique_ptr<ChatBackgroundTransfer> transfer;

    int requestsTo(const QString &path)
    {
        int n = 0;
        for (const QJsonValue &entry : service.log())
            n += entry[u"path"].toString() == path;
        return n;
    }

    QJsonArray messages()
    {
        return service.control("GET", QStringLiteral("messages?user=demo&conversation_id=main"))
            .value(u"messages")
            .toArray();
    }

    void removeFaults() { service.control("DELETE", QStringLiteral("faults")); }

    QString receiptPath(const QString &key) const
    {
        return QDir(transfer->folder(key)).filePath(QStringLiteral("receipt.json"));
    }

    QString bodyPath(const QString &key) const
    {
        return QDir(transfer->folder(key)).filePath(QStringLiteral("request.body"));
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        identity.use(service);
    }

    void init()
    {
        transfer.reset();
        home.reset();
        home = std::make_unique<TestHome>();
        service.reset();
        service.control("POST", QStringLiteral("agent"), {{"mode", "silent"}});
        identity.signIn();
        service.clearLog();
        sleeper.requested.clear();
        transfer = std::make_unique<ChatBackgroundTransfer>(&sleeper);
    }

    void cleanup() { transfer.reset(); }

    void registersAsTheOneInstance()
    {
        QCOMPARE(ChatBackgroundTransfer::shared(), transfer.get());
        {
            ChatBackgroundTransfer newer(&sleeper);
            QCOMPARE(ChatBackgroundTransfer::shared(), &newer);
        }
        // The older one carries background sends again once the newer is gone.
        QCOMPARE(ChatBackgroundTransfer::shared(), transfer.get());
        const QString kept = QStringLiteral("t00");
        Sync::run(send(QStringLiteral("kept"), kept, chatKey(kept)));
        QVERIFY(transfer->stored(chatKey(kept)));

        const QString plain = QStringLiteral("t0");
        const QString plainFolder = transfer->folder(chatKey(plain));
        transfer.reset();
        QCOMPARE(ChatBackgroundTransfer::shared(), nullptr);
        // Without a manager a background id changes nothing: the send goes out, nothing is kept.
        const QJsonObject reply = Sync::run(send(QStringLiteral("plain"), plain, chatKey(plain)));
        QCOMPARE(reply.value(u"user_seq").toInt(), 2);
        QVERIFY(!QDir(plainFolder).exists());
    }

    void folderNamesAreSafeAndDistinct()
    {
        const QStringList keys{chatKey(QStringLiteral("a")), chatKey(QStringLiteral("A")),
                               QStringLiteral("../../etc:chat:x"), QStringLiteral("a/b:upload:c"),
                               QStringLiteral("דמו:voice:1"), QStringLiteral("..")};
        const QString root = QDir(home->path()).filePath(QStringLiteral("background-chat"));
        QSet<QString> seen;
        for (const QString &key : keys) {
            const QString folder = transfer->folder(key);
            QCOMPARE(QFileInfo(folder).absolutePath(), root);
            QVERIFY2(!QFileInfo(folder).fileName().startsWith(u'.'), qPrintable(folder));
            seen.insert(folder);
        }
        QCOMPARE(seen.size(), keys.size());
    }

    void answersFromTheReceiptWithoutSending()
    {
        const QString key = chatKey(QStringLiteral("t1"));
        const QJsonObject first =
            Sync::run(send(QStringLiteral("hello"), QStringLiteral("t1"), key));
        QCOMPARE(first.value(u"user_seq").toInt(), 1);
        // The body sent is the body kept, byte for byte.
        const QJsonArray log = service.log();
        QCOMPARE(log.size(), 1);
        QCOMPARE(QByteArray::fromBase64(log[0][u"body_b64"].toString().toLatin1()),
                 fileBytes(bodyPath(key)));
        const std::optional<Api::Reply> kept = transfer->stored(key);
        QVERIFY(kept);
        QCOMPARE(kept->status, 200);
        QCOMPARE(QJsonDocument::fromJson(kept->data).object(), first);

        // Again, and again after a restart: the kept answer, nothing on the wire.
        service.clearLog();
        QCOMPARE(Sync::run(send(QStringLiteral("changed"), QStringLiteral("t1"), key)), first);
        transfer = std::make_unique<ChatBackgroundTransfer>(&sleeper);
        QCOMPARE(Sync::run(send(QStringLiteral("changed"), QStringLiteral("t1"), key)), first);
        QVERIFY(service.log().isEmpty());
        QCOMPARE(messages().size(), 1);
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
        QTest::newRow("status as text")
            << QByteArray("{\"status\":\"200\",\"data\":\"\"}") << true;
        QTest::newRow("data not base64")
            << QByteArray("{\"status\":200,\"data\":\"%%%\"}") << true;
    }

    void handWrittenReceipts()
    {
        QFETCH(QByteArray, receipt);
        QFETCH(bool, sends);
        const QString key = chatKey(QStringLiteral("t2"));
        QVERIFY(QDir().mkpath(transfer->folder(key)));
        QFile file(receiptPath(key));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(receipt);
        file.close();
        if (sends)
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression(QStringLiteral("unreadable receipt")));

        Sync::run(send(QStringLiteral("hello"), QStringLiteral("t2"), key));
        QCOMPARE(requestsTo(QStringLiteral("webapi/chat")), sends ? 1 : 0);
        if (sends) // the unreadable receipt gave way to the real answer
            QCOMPARE(transfer->stored(key)->status, 200);
    }

    void performsOfOneKeyShareOneRequest_data()
    {
        QTest::addColumn<bool>("sameKey");
        QTest::addColumn<int>("requests");
        QTest::newRow("same key") << true << 1;
        QTest::newRow("different keys") << false << 2;
    }

    void performsOfOneKeyShareOneRequest()
    {
        QFETCH(bool, sameKey);
        QFETCH(int, requests);
        service.fault({{"match", "webapi/chat"}, {"status", QJsonValue::Null}, {"delay", 0.3},
                       {"times", -1}});
        const QString firstKey = chatKey(QStringLiteral("a"));
        const QString secondKey = sameKey ? firstKey : chatKey(QStringLiteral("b"));
        QJsonObject first;
        QJsonObject second;
        auto both = [&]() -> QCoro::Task<> {
            // Both start at once: a task runs up to its first wait when it is made.
            QCoro::Task<QJsonObject> a = send(QStringLiteral("1"), QStringLiteral("a"), firstKey);
            QCoro::Task<QJsonObject> b = send(QStringLiteral("2"), QStringLiteral("b"), secondKey);
            first = co_await a;
            second = co_await b;
        };
        QCoro::Task<> running = both();
        QVERIFY(transfer->running(firstKey));
        Sync::run(std::move(running));
        QVERIFY(!transfer->running(firstKey));
        QCOMPARE(requestsTo(QStringLiteral("webapi/chat")), requests);
        QCOMPARE(messages().size(), requests);
        QCOMPARE(first == second, sameKey);
    }

    void anyStatusIsKeptAndJudged_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("description");
        QTest::newRow("created") << 201 << R"({"ok":true})" << QString();
        QTest::newRow("edge down") << 502 << QString() << "HTTP 502";
        QTest::newRow("gone task") << 409
                                   << R"({"error":"reply_target_not_found","detail":"No task"})"
                                   << "No task";
        QTest::newRow("signed out") << 401 << QString() << "unauthorized";
    }

    void anyStatusIsKeptAndJudged()
    {
        QFETCH(int, status);
        QFETCH(QString, body);
        QFETCH(QString, description);
        QJsonObject fault{{"match", "webapi/chat"}, {"status", status}};
        if (!body.isEmpty())
            fault.insert(QStringLiteral("body"), body);
        service.fault(fault);
        const QString key = chatKey(QStringLiteral("t3"));
        // Judged the same whether the answer is new or read back from the receipt.
        for (int round = 0; round < 2; ++round) {
            QString outcome;
            try {
                Sync::run(send(QStringLiteral("hi"), QStringLiteral("t3"), key));
            } catch (const Api::Failed &failed) {
                outcome = failed.description();
            } catch (const Api::Unauthorized &) {
                outcome = QStringLiteral("unauthorized");
            }
            QCOMPARE(outcome, description);
            QCOMPARE(transfer->stored(key)->status, status);
        }
        QCOMPARE(requestsTo(QStringLiteral("webapi/chat")), 1);
    }

    void noReplyLeavesNoReceipt_data()
    {
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<int>("storedOnServer");
        QTest::newRow("dropped") << QJsonObject{{"drop", true}} << 0;
        QTest::newRow("reply lost") << QJsonObject{{"after", "drop"}} << 1;
        QTest::newRow("cut mid-body") << QJsonObject{{"drop_mid_body", true}} << 0;
    }

    void noReplyLeavesNoReceipt()
    {
        QFETCH(QJsonObject, fault);
        QFETCH(int, storedOnServer);
        fault.insert(QStringLiteral("match"), QStringLiteral("webapi/chat"));
        fault.insert(QStringLiteral("times"), -1);
        service.fault(fault);
        const QString key = chatKey(QStringLiteral("t4"));
        const QString text = QString(200'000, u'x'); // big enough to be cut in the middle
        QVERIFY_THROWS_EXCEPTION(Api::TransportError,
                                 Sync::run(send(text, QStringLiteral("t4"), key)));
        QVERIFY(!transfer->stored(key));
        QVERIFY(!transfer->running(key));
        QVERIFY(!fileBytes(bodyPath(key)).isEmpty());
        QCOMPARE(messages().size(), storedOnServer);

        // The next attempt sends again and the server, knowing the request id, keeps one message.
        removeFaults();
        const QJsonObject reply = Sync::run(send(text, QStringLiteral("t4"), key));
        QCOMPARE(reply.value(u"user_seq").toInt(), 1);
        QCOMPARE(messages().size(), 1);
        QVERIFY(transfer->stored(key));
    }

    void stoppingTheManagerReleasesItsCallers()
    {
        service.fault({{"match", "webapi/chat"}, {"status", QJsonValue::Null}, {"delay", 2}});
        const QString key = chatKey(QStringLiteral("t6"));
        bool stopped = false;
        auto caller = [&]() -> QCoro::Task<> {
            try {
                co_await send(QStringLiteral("hi"), QStringLiteral("t6"), key);
            } catch (const Api::TransportError &) {
                stopped = true;
            }
        };
        QCoro::Task<> running = caller();
        QVERIFY(transfer->running(key));
        const QString body = bodyPath(key);
        transfer.reset();
        QTRY_VERIFY(stopped);
        // The body stays for the next run to send again.
        QVERIFY(QFile::exists(body));
    }

    void watchFindsAnEarlierRunsReceipt()
    {
        const QString key = chatKey(QStringLiteral("t7"));
        std::optional<std::optional<Api::Reply>> seen;
        auto watching = [&]() -> QCoro::Task<> { seen = co_await transfer->watch(key, 5s); };
        QCoro::Task<> running = watching();
        QCOMPARE(sleeper.waiting(), 1);
        sleeper.advance();
        QTRY_COMPARE(sleeper.requested.size(), 2);
        QVERIFY(!seen);

        // Another instance, standing for the run that finished the upload, keeps the answer.
        {
            ChatBackgroundTransfer earlier;
            earlier.keep(key, 200, R"({"ok":true,"user_seq":7})");
        }
        sleeper.advance();
        QTRY_VERIFY(seen);
        QVERIFY(*seen);
        QCOMPARE((*seen)->status, 200);
        QCOMPARE(QJsonDocument::fromJson((*seen)->data)[u"user_seq"].toInt(), 7);
        QCOMPARE(sleeper.requested, (QList<std::chrono::milliseconds>{1s, 1s}));
    }

    void watchGivesUpAfterItsPatience_data()
    {
        QTest::addColumn<int>("patienceSeconds");
        QTest::newRow("none") << 0;
        QTest::newRow("three seconds") << 3;
    }

    void watchGivesUpAfterItsPatience()
    {
        QFETCH(int, patienceSeconds);
        std::optional<std::optional<Api::Reply>> seen;
        auto watching = [&]() -> QCoro::Task<> {
            seen = co_await transfer->watch(chatKey(QStringLiteral("t8")),
                                            std::chrono::seconds(patienceSeconds));
        };
        QCoro::Task<> running = watching();
        for (int i = 0; i < patienceSeconds; ++i) {
            QTRY_COMPARE(sleeper.waiting(), 1);
            sleeper.advance();
        }
        QTRY_VERIFY(seen);
        QVERIFY(!*seen);
        QCOMPARE(sleeper.requested.size(), patienceSeconds);
    }

    void discardAndAcknowledgedRemoveFolders()
    {
        const QStringList keys{chatKey(QStringLiteral("a")), chatKey(QStringLiteral("b")),
                               chatKey(QStringLiteral("c"))};
        for (const QString &key : keys)
            Sync::run(send(QStringLiteral("x"), key.section(u':', -1), key));
        transfer->acknowledged({keys[0], keys[1], chatKey(QStringLiteral("never"))});
        QVERIFY(!QDir(transfer->folder(keys[0])).exists());
        QVERIFY(!QDir(transfer->folder(keys[1])).exists());
        QVERIFY(transfer->stored(keys[2]));

        transfer->discard(keys[2]);
        QVERIFY(!QDir(transfer->folder(keys[2])).exists());
        // With the stale answer gone, the next perform asks the server again.
        service.clearLog();
        Sync::run(send(QStringLiteral("x"), QStringLiteral("c"), keys[2]));
        QCOMPARE(requestsTo(QStringLiteral("webapi/chat")), 1);
    }

    void directSendsAreMarked_data()
    {
        QTest::addColumn<bool>("upload");
        QTest::newRow("json") << false;
        QTest::newRow("multipart") << true;
    }

    void directSendsAreMarked()
    {
        QFETCH(bool, upload);
        const QString key = chatKey(QStringLiteral("t9"));
        Api::Request request =
            Api::authorized(QStringLiteral("webapi/chat"), "POST",
                            chatBody(QStringLiteral("now"), QStringLiteral("t9")));
        if (upload) {
            const QString boundary = Multipart::newBoundary();
            request = Api::authorized(QStringLiteral("webapi/upload"), "POST");
            request.request.setHeader(QNetworkRequest::ContentTypeHeader,
                                      Multipart::contentType(boundary));
            request.body = Multipart::body(
                boundary, {}, {QStringLiteral("file"), QStringLiteral("a.txt"),
                               QStringLiteral("text/plain"), QByteArray("abc")});
        }
        const Api::Reply reply = Sync::run(transfer->direct(key, request));
        QCOMPARE(reply.status, 200);
        const QJsonArray log = service.log();
        QCOMPARE(log.size(), 1);
        QCOMPARE(log[0][u"headers"][u"X-Halvenmark-Route"].toString(), QStringLiteral("direct"));
        // Sent from memory, yet its answer is kept like any other.
        QVERIFY(!QFile::exists(bodyPath(key)));
        QCOMPARE(transfer->stored(key)->data, reply.data);
        // A background send carries no such mark.
        service.clearLog();
        const QString later = QStringLiteral("t10");
        Sync::run(send(QStringLiteral("later"), later, chatKey(later)));
        const QJsonArray plain = service.log();
        QVERIFY(!plain[0][u"headers"].toObject().contains(u"X-Halvenmark-Route"));
    }

    void largeUploadReportsProgress()
    {
        QByteArray data(3 * 1024 * 1024, '\0');
        for (qsizetype i = 0; i < data.size(); ++i)
            data[i] = char(i * 31 % 251);
        const QString key =
            ChatBackgroundTransfer::key(QStringLiteral("demo"), QStringLiteral("upload"),
                                        QStringLiteral("f1"));
        double now = 0;
        UploadMeter meter(&sleeper, [&] { return now; });
        connect(transfer.get(), &ChatBackgroundTransfer::progress, &meter, &UploadMeter::report);
        QSignalSpy progress(transfer.get(), &ChatBackgroundTransfer::progress);
        QSignalSpy shown(&meter, &UploadMeter::changed);

        Api::Options options;
        options.backgroundID = key;
        // Named: GCC 12 destroys brace-built aggregate arguments of a coroutine twice.
        const Api::Upload upload{{QStringLiteral("file"), QStringLiteral("big.bin"),
                                  QStringLiteral("application/octet-stream"), data},
                                 {{QStringLiteral("client_request_id"), QStringLiteral("f1")}}};
        const Api::Reply reply = Sync::run(Api::upload(QStringLiteral("webapi/upload"), upload, options));
        const QJsonObject answer = QJsonDocument::fromJson(reply.data).object();
        QCOMPARE(answer[u"sha256"].toString(),
                 QString::fromLatin1(
                     QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex()));

        const qint64 bodySize = QFileInfo(bodyPath(key)).size();
        QVERIFY(bodySize > data.size());
        QVERIFY(!progress.isEmpty());
        qint64 previous = 0;
        for (const QList<QVariant> &step : progress) {
            QCOMPARE(step[0].toString(), key);
            QVERIFY(step[1].toLongLong() >= previous);
            QCOMPARE(step[2].toLongLong(), bodySize);
            previous = step[1].toLongLong();
        }
        QCOMPARE(previous, bodySize);
        QCOMPARE(meter.text(key), QStringLiteral("100%"));
        QVERIFY(meter.moving(key, 15));
        QVERIFY(!shown.isEmpty());
    }

    // A real process killed at each pause point; this run plays the app started again.
    void killedWhileSending_data()
    {
        QTest::addColumn<QString>("stage");
        QTest::addColumn<int>("sentBeforeKill");
        QTest::newRow("body written") << "body-written" << 0;
        QTest::newRow("receipt written") << "receipt-written" << 1;
    }

    void killedWhileSending()
    {
        QFETCH(QString, stage);
        QFETCH(int, sentBeforeKill);
        const QString id = QStringLiteral("crash-") + stage;
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("TRANSFER_CHILD"), QStringLiteral("1"));
        env.insert(QStringLiteral("TRANSFER_CHILD_COOKIE"), identity.value);
        env.insert(QStringLiteral("TRANSFER_CHILD_ID"), id);
        env.insert(QStringLiteral("HALVENMARK_PAUSE_AT"), stage);
        child.setProcessEnvironment(env);
        child.setReadChannel(QProcess::StandardError);
        child.start(QCoreApplication::applicationFilePath(), {});
        QVERIFY(child.waitForStarted(10'000));
        QByteArray said;
        const QByteArray line = "halvenmark: paused at " + stage.toLatin1() + "\n";
        while (!said.contains(line) && child.waitForReadyRead(20'000))
            said += child.readAllStandardError();
        QVERIFY2(said.contains(line), said.constData());
        child.kill();
        QVERIFY(child.waitForFinished(10'000));
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);

        const QString key = chatKey(id);
        QCOMPARE(requestsTo(QStringLiteral("webapi/chat")), sentBeforeKill);
        QCOMPARE(bool(transfer->stored(key)), sentBeforeKill == 1);
        QVERIFY(!fileBytes(bodyPath(key)).isEmpty());

        // The next run settles the turn: sending only what never went out, never twice.
        const QJsonObject reply = Sync::run(send(QStringLiteral("from the child"), id, key));
        QCOMPARE(reply.value(u"user_seq").toInt(), 1);
        QCOMPARE(requestsTo(QStringLiteral("webapi/chat")), 1);
        QCOMPARE(messages().size(), 1);
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet("TRANSFER_CHILD"))
        return childRun();
    ChatBackgroundTransferTest test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "chatbackgroundtransfertest.moc"
