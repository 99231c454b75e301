// The transport against the reference service over loopback: what goes on the wire and
// how each kind of reply is judged.

#include "net/api.h"
#include "net/wire.h"
#include "net/identity.h"
#include "net/projectcache.h"
#include "platform/atomicfile.h"
#include "support/service.h"
#include "support/testidentity.h"
#include "support/sync.h"
#include "support/testhome.h"

#include <QCoroWebSocket>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QFileInfo>
#include <QDir>
#include <QTest>
#include <QWebSocket>

namespace {

QJsonObject lastRequest(Service &service)
{
    const QJsonArray log = service.log();
    return log.isEmpty() ? QJsonObject() : log.last().toObject();
}

} // namespace

class ApiTest : public QObject
{
    Q_OBJECT

    TestHome home;
    Service service;
    TestIdentity identity;

    QString signIn(const QString &user = QStringLiteral("demo"))
    {
        const Api::Login login = Sync::run(identity.api().login(user, user + QStringLiteral("-password")));
        return login.cookie;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        identity.use(service);
    }

    void init()
    {
        service.reset();
        ProjectCache::clear();
        identity.api().due().clear();
        identity.value = signIn();
        identity.rejections = 0;
        service.clearLog();
    }

    // An Api that goes while a request waits ends that request's task (as cancelled) instead of
    // leaving it suspended for ever, and sends nothing more.
    void goingEndsWhatWaits()
    {
        service.fault({{"match", "webapi/tasks"}, {"status", QJsonValue()}, {"delay", 30}});
        QObject owner;
        auto api = std::make_unique<Api>(new QNetworkAccessManager(&owner),
                                         ServerAddress::parse(service.base().toString()));
        bool ended = false;
        bool canceled = false;
        auto waiting = [](Api *api, bool *ended, bool *canceled) -> QCoro::Task<> {
            try {
                co_await api->openPost(QJsonObject(), QStringLiteral("webapi/tasks"));
            } catch (const Api::TransportError &error) {
                *canceled = error.code == QNetworkReply::OperationCanceledError;
            }
            *ended = true;
        };
        QCoro::Task<> task = waiting(api.get(), &ended, &canceled);
        QTRY_VERIFY(lastRequest(service).value(u"path").toString() == u"webapi/tasks");
        service.clearLog();
        api.reset();
        QVERIFY(ended);
        QVERIFY(canceled);
        QVERIFY(service.log().isEmpty()); // not retried
    }

    void setCookieRepliesAreNeverReplayed()
    {
        // A sign-in reply sets a cookie; the next request must still carry only ours.
        signIn(QStringLiteral("owner"));
        Sync::run(identity.api().page<QJsonValue>(QStringLiteral("webapi/projects")));
        const QJsonObject headers = lastRequest(service).value(u"headers").toObject();
        QCOMPARE(headers.value(u"Cookie").toString(), QStringLiteral("rb_web_session=") + identity.value);
    }

    void downloadsGoStraightToDisk()
    {
        QTemporaryDir folder;
        const QString saved = Sync::run(identity.api().download(QStringLiteral("webapi/files/blob.bin"), folder.path()));
        QCOMPARE(QFileInfo(saved).fileName(), QStringLiteral("blob.bin"));
        QByteArray expected;
        for (int i = 0; i < 256; ++i)
            expected += char(i);
        QCOMPARE(AtomicFile::read(saved), std::optional<QByteArray>(expected));
    }

    void tcpSocketsSendWithoutDelay()
    {
        // Any TCP socket of the process, Qt's HTTP ones included, sends small writes at once.
        QTcpSocket socket;
        socket.connectToHost(service.base().host(), quint16(service.base().port()));
        QVERIFY(socket.waitForConnected(5000));
        QCOMPARE(socket.socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
    }

    void wholeExchangeHasATimeLimit()
    {
        // Slower than the limit, though well inside the idle timeout.
        identity.api().setExchangeLimit(std::chrono::milliseconds(300));
        const auto restore = qScopeGuard([this] { identity.api().setExchangeLimit(std::chrono::seconds(120)); });
        service.fault({{"match", "webapi/tasks"}, {"status", QJsonValue()}, {"delay", 3}, {"times", -1}});
        try {
            Sync::run(identity.api().fetch(QStringLiteral("webapi/tasks")));
            QFAIL("the exchange should have been cut off");
        } catch (const Api::TransportError &error) {
            QCOMPARE(error.code, QNetworkReply::TimeoutError);
        }
    }

    void replyOverItsCapFails()
    {
        Api::Request request = identity.api().authorized(QStringLiteral("webapi/echo"), "POST",
                                               QJsonObject{{"text", QString(5000, u'a')}});
        request.maxBytes = 1000;
        try {
            Sync::run(identity.api().exchange(request));
            QFAIL("a reply over the cap must fail");
        } catch (const Api::Failed &failed) {
            QCOMPARE(failed.code, QStringLiteral("too_large"));
        }
    }

    void attemptsOnTheWire_data()
    {
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<int>("sent");
        QTest::newRow("GET: one retry") << QByteArray("GET") << 2;
        QTest::newRow("POST: none") << QByteArray("POST") << 1;
        QTest::newRow("DELETE: none") << QByteArray("DELETE") << 1;
    }

    void attemptsOnTheWire()
    {
        QFETCH(QByteArray, method);
        service.fault({{"match", "webapi/echo"}, {"drop", true}, {"times", -1}});
        const QString path = QStringLiteral("webapi/echo");
        if (method == "GET")
            QVERIFY_THROWS_EXCEPTION(Api::TransportError, Sync::run(identity.api().fetch(path)));
        else if (method == "POST")
            QVERIFY_THROWS_EXCEPTION(Api::TransportError, Sync::run(identity.api().post(path, {{"a", 1}})));
        else
            QVERIFY_THROWS_EXCEPTION(Api::TransportError, Sync::run(identity.api().remove(path)));
        QTest::qWait(100); // a quiet re-send by Qt would arrive now
        QTEST(int(service.log().size()), "sent");
    }

    void projectFilesFallBackOffline()
    {
        const QString path = QStringLiteral("webapi/projects/1/files/notes.md");
        const QByteArray online = Sync::run(identity.api().fetch(path));
        QVERIFY(!online.isEmpty());
        service.fault({{"match", path}, {"drop", true}, {"times", -1}});
        QCOMPARE(Sync::run(identity.api().fetch(path)), online);
        // Other paths have no copy to offer.
        service.fault({{"match", "webapi/tasks"}, {"drop", true}, {"times", -1}});
        QVERIFY_THROWS_EXCEPTION(Api::TransportError, Sync::run(identity.api().fetch(QStringLiteral("webapi/tasks"))));
    }

    void uploadIsStrictMultipart()
    {
        QByteArray data(300'000, '\0');
        for (int i = 0; i < data.size(); ++i)
            data[i] = char(i * 7);
        // Named: GCC 12 destroys brace-built aggregate arguments of a coroutine twice.
        const Api::Upload upload{{QStringLiteral("file"), QStringLiteral("photo.jpg"), QStringLiteral("image/jpeg"), data},
                                 {{QStringLiteral("scope"), QStringLiteral("main")}}};
        const auto reply = Sync::run(identity.api().upload<QJsonObject>(QStringLiteral("webapi/upload"), upload));
        QCOMPARE(reply.value(u"size").toInt(), data.size());
        QCOMPARE(reply.value(u"sha256").toString(), ProjectCache::digest(data));
        QCOMPARE(reply.value(u"fields")[u"scope"].toString(), QStringLiteral("main"));
        QCOMPARE(reply.value(u"mime").toString(), QStringLiteral("image/jpeg"));
    }

    void namedDownload()
    {
        const auto named = Sync::run(identity.api().fetchNamed(QStringLiteral("webapi/files/דוח שבועי.txt")));
        QCOMPARE(named.filename, QStringLiteral("דוח שבועי.txt"));
        QVERIFY(!named.data.isEmpty());
        const auto bare = Sync::run(identity.api().fetchNamed(QStringLiteral("webapi/raw/report.txt")));
        QCOMPARE(bare.filename, QStringLiteral("report.txt"));
    }

    void socketTakesLargeMessages()
    {
        Api::PendingSocket pending = identity.api().socket(QStringLiteral("webapi/ws"));
        QCOMPARE(pending.request.url().scheme(), QStringLiteral("ws"));
        QWebSocket *ws = pending.socket.get();
        QSignalSpy messages(ws, &QWebSocket::textMessageReceived);
        QVERIFY(Sync::run(pending.open()));
        QTRY_COMPARE_WITH_TIMEOUT(messages.count(), 1, 5000); // hello
        const qint64 size = 8 * 1024 * 1024;
        ws->sendTextMessage(QStringLiteral(R"({"type":"big","size":%1})").arg(size));
        QVERIFY(messages.wait(20000));
        QCOMPARE(messages.last().first().toString().toUtf8().size(), size);
    }
};

QTEST_GUILESS_MAIN(ApiTest)
#include "apitest.moc"
