// The call's link to the reference service: the socket with the session cookie, frames both
// ways, a socket that drops or is refused, and the JSON requests.
#include "support/service.h"
#include "support/sync.h"
#include "support/testidentity.h"
#include "voice/apicalllink.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString socketPath = u"webapi/voice-live/ws?provider=openai&app_language=en"_s;

} // namespace

class ApiCallLinkTest : public QObject
{
    Q_OBJECT

    Service service;
    TestIdentity identity;

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        identity.use(service);
    }

    void init()
    {
        service.reset();
        identity.signIn(); // demo may call
    }

    // Frames both ways over this link: tst_callcli's call against the same server.
    void aDropByTheServerIsNoticed()
    {
        ApiCallLink link{identity.api()};
        QSignalSpy dropped(&link, &CallLink::dropped);
        QVERIFY(Sync::run(link.open(socketPath)));
        QVERIFY(link.isOpen());
        service.control("POST", u"voice-live/drop"_s);
        QTRY_COMPARE_WITH_TIMEOUT(dropped.size(), 1, 5000); // may come during the control call
        QVERIFY(!link.isOpen());
        QVERIFY(!Sync::run(link.send(R"({"type":"audio","data":"AAA="})"_ba)));
    }

    void closingItselfIsNoDrop()
    {
        ApiCallLink link{identity.api()};
        QSignalSpy dropped(&link, &CallLink::dropped);
        QVERIFY(Sync::run(link.open(socketPath)));
        link.close();
        QVERIFY(!dropped.wait(300));
    }

    void refusedOrSignedOutOpensFail_data()
    {
        QTest::addColumn<bool>("signedIn");
        QTest::newRow("server refuses") << true;
        QTest::newRow("no session") << false;
    }
    void refusedOrSignedOutOpensFail()
    {
        QFETCH(bool, signedIn);
        service.control("POST", u"voice-live/agent"_s, {{u"refuse"_s, 1}});
        if (!signedIn) {
            identity.value.clear();
        }
        ApiCallLink link{identity.api()};
        QVERIFY(!Sync::run(link.open(socketPath)));
        QVERIFY(!link.isOpen());
    }

    void requestsCarryTheSession()
    {
        ApiCallLink link{identity.api()};
        const QJsonObject status =
            Sync::run(link.get(u"webapi/voice-live/status"_s, std::chrono::seconds(25)));
        QVERIFY(status.value(u"available"_s).toBool());
        const QJsonObject saved = Sync::run(
            link.post(u"webapi/voice-live/preferences"_s, QJsonObject{{u"voice"_s, u"Kore"_s}}));
        QCOMPARE(saved[u"preferences"_s][u"voice"_s].toString(), u"Kore"_s);
        QVERIFY_THROWS_EXCEPTION(std::exception,
                                 Sync::run(link.post(u"webapi/voice-live/preferences"_s,
                                                     QJsonObject{{u"voice"_s, u"Nobody"_s}})));
    }
};

QTEST_GUILESS_MAIN(ApiCallLinkTest)
#include "tst_apicalllink.moc"
