// The end of the process: what waits or is under way finishes, nothing new starts, and a
// debounced save still happens. Shutdown cannot be undone, so this binary ends it once.

#include "platform/shutdown.h"
#include "chat/transfer/chatbackgroundtransfer.h"
#include "net/api.h"
#include "net/networkmanager.h"
#include "platform/debouncer.h"
#include "platform/sleeper.h"
#include "support/service.h"
#include "support/sync.h"
#include "support/testhome.h"
#include "support/testidentity.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

QCoro::Task<> sleepLong(bool *woke)
{
    co_await Sleeper::real().sleep(1h);
    *woke = true;
}

QCoro::Task<> fetch(Api *api, QString path, bool *ended, bool *canceled)
{
    try {
        co_await api->raw(path, "GET", 90s);
    } catch (const Api::TransportError &error) {
        *canceled = error.code == QNetworkReply::OperationCanceledError;
    }
    *ended = true;
}

QCoro::Task<> postOpen(Api *api, QString path, bool *ended, bool *canceled)
{
    try {
        co_await api->openPost(QJsonObject(), path);
    } catch (const Api::TransportError &error) {
        *canceled = error.code == QNetworkReply::OperationCanceledError;
    }
    *ended = true;
}

bool logged(Service &service, const QString &path)
{
    for (const QJsonValue &entry : service.log()) {
        if (entry[u"path"].toString() == path)
            return true;
    }
    return false;
}

} // namespace

class ShutdownTest : public QObject
{
    Q_OBJECT

    TestHome home;
    Service service;
    TestIdentity identity;

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        identity.use(service);
        identity.signIn();
    }

    void endsWhatRunsAndStartsNothing()
    {
        const QString slow = QStringLiteral("webapi/projects");
        service.fault({{"match", slow}, {"status", QJsonValue()}, {"delay", 60}});
        service.clearLog();

        bool woke = false;
        QCoro::Task<> sleeping = sleepLong(&woke);
        bool ended = false;
        bool canceled = false;
        QCoro::Task<> exchanging = fetch(&identity.api(), slow, &ended, &canceled);
        QObject owner;
        int saves = 0;
        Debouncer save(&owner, 1h, [&saves] { ++saves; }, &Sleeper::real());
        save.schedule();
        // A reply whose headers came and whose body stalls: aborted, not read.
        QTcpServer stalling;
        QVERIFY(stalling.listen(QHostAddress::LocalHost));
        QObject::connect(&stalling, &QTcpServer::newConnection, &stalling, [&stalling] {
            QTcpSocket *peer = stalling.nextPendingConnection();
            QObject::connect(peer, &QTcpSocket::readyRead, peer, [peer] {
                peer->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                            "Content-Length: 100\r\n\r\n{");
            });
        });
        Api headersOnly(Network::create(&owner),
                        ServerAddress::parse(u"http://127.0.0.1:%1"_s.arg(stalling.serverPort())));
        bool stalledEnded = false;
        bool stalledCanceled = false;
        QCoro::Task<> stalled = postOpen(&headersOnly, u"webapi/auth/login"_s, &stalledEnded, &stalledCanceled);
        QTRY_VERIFY(logged(service, slow));
        QVERIFY(!woke && !ended);
        QTest::qWait(200); // the stalled reply's headers arrive
        QVERIFY(!stalledEnded);
        QTest::failOnWarning(QRegularExpression(u"device not open"_s));

        Shutdown::begin();
        QVERIFY(Shutdown::begun());
        // All at once, without waiting on any timer.
        QVERIFY(woke);
        QVERIFY(ended);
        QVERIFY(canceled);
        QVERIFY(stalledEnded && stalledCanceled);
        // After the loop, the managers a parent owns go, their network thread with them.
        QPointer<QNetworkAccessManager> owned = headersOnly.manager();
        QVERIFY(owned);
        Network::settle();
        QVERIFY(!owned);
        QCOMPARE(saves, 1);

        // Nothing new: a wait ends its loop at once, a request never leaves.
        QVERIFY_THROWS_EXCEPTION(Shutdown::Ended, Sync::run(Sleeper::real().sleep(1ms)));
        service.clearLog();
        QVERIFY_THROWS_EXCEPTION(Api::TransportError,
                                 Sync::run(identity.api().raw(QStringLiteral("webapi/me"), "GET", 5s)));
        QVERIFY(!logged(service, QStringLiteral("webapi/me")));
        // Nor a transfer, which sends through the manager itself.
        ChatBackgroundTransfer transfers(identity.api(), Sleeper::real());
        Api::Request post = identity.api().authorized(u"webapi/chat/send"_s, "POST");
        QVERIFY_THROWS_EXCEPTION(Api::TransportError,
                                 Sync::run(transfers.perform(post, u"ending-1"_s)));
        QVERIFY(!logged(service, QStringLiteral("webapi/chat/send")));
    }
};

QTEST_MAIN(ShutdownTest)
#include "shutdowntest.moc"
