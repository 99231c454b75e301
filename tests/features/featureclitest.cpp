// health and vault in the terminal client, as scripts drive them: exit statuses, what goes
// to the server, and that nothing is asked before it can be used.

#include "support/clirun.h"
#include "support/service.h"
#include "support/testhome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using Run = CliRun;

class FeatureCliTest : public QObject
{
    Q_OBJECT

    Service service;
    std::unique_ptr<TestHome> home;

    Run cli(const QStringList &args, const QByteArray &input = {})
    {
        QProcessEnvironment env = cliEnvironment(home->path(), service.base());
        env.remove(QStringLiteral("DISPLAY")), env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        return runCli(QStringLiteral(HALVENMARK_CLI), args, env, input);
    }

private slots:
    void initTestCase() { QVERIFY2(service.running(), "the reference service did not start"); }

    void init()
    {
        home.reset();
        home = std::make_unique<TestHome>();
        service.reset();
        QCOMPARE(cli({"login", "--user", "demo"}, "demo-password\n").status, 0);
        service.clearLog();
    }

    void usage_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("vault alone") << QStringList{"vault"};
        QTest::newRow("add of an unknown kind")
            << QStringList{"vault", "add", "pin", "--title", "t"};
        QTest::newRow("field without =")
            << QStringList{"vault", "add", "note", "--title", "t", "--field", "x"};
        QTest::newRow("import of a missing file")
            << QStringList{"health", "import", "/nonexistent.xml"};
        QTest::newRow("copy without a display") << QStringList{"vault", "copy", "v1"};
    }

    void usage()
    {
        QFETCH(QStringList, args);
        const Run run = cli(args, "not a password\n");
        QCOMPARE(run.status, 2);
        QVERIFY(!run.err.isEmpty());
        QVERIFY(!run.err.contains(u"Password"));
        for (const QJsonValue &entry : service.log())
            QVERIFY(!entry.toObject().value(u"path").toString().startsWith(u"webapi/vault"));
    }

    void vaultAddListRemove()
    {
        Run run = cli({"vault", "add", "login", "--title", "Mail", "--field", "username=dana",
                       "--field", "password=-", "--primary"},
                      "hunter2\n");
        QCOMPARE(run.status, 0);
        run = cli({"vault", "list", "--json"});
        QCOMPARE(run.status, 0);
        const QJsonArray items =
            QJsonDocument::fromJson(run.out).object().value(u"items").toArray();
        QCOMPARE(items.size(), 1);
        QCOMPARE(items[0][u"username"].toString(), u"dana");
        QVERIFY(items[0][u"primary"].toBool());
        QVERIFY(!run.out.contains("hunter2"));
        QCOMPARE(cli({"vault", "rm", items[0][u"id"].toString()}).status, 0);
        QCOMPARE(cli({"vault", "rm", items[0][u"id"].toString()}).status, 1);
    }

};

QTEST_GUILESS_MAIN(FeatureCliTest)
#include "featureclitest.moc"
