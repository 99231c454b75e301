// The terminal client as scripts see it: commands, JSON shapes and exit statuses.

#include "support/clirun.h"
#include "support/service.h"
#include "support/testhome.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

using Run = CliRun;

class CliTest : public QObject
{
    Q_OBJECT

    Service service;
    std::unique_ptr<TestHome> home;

    Run cli(const QStringList &args, const QByteArray &input = {},
            const QString &server = {})
    {
        const QProcessEnvironment env =
            cliEnvironment(home->path(), server.isEmpty() ? service.base() : QUrl(server));
        return runCli(QStringLiteral(HALVENMARK_CLI), args, env, input);
    }

    void login() { QCOMPARE(cli({"login", "--user", "demo"}, "demo-password\n").status, 0); }

private slots:
    void initTestCase() { QVERIFY2(service.running(), "the reference service did not start"); }

    void init()
    {
        home.reset(); // the old home ends first, so the new one stays in force
        home = std::make_unique<TestHome>();
        service.reset();
    }

    void plainTextServerIsRefused()
    {
        const Run run = cli({"whoami"}, {}, QStringLiteral("http://example.com"));
        QCOMPARE(run.status, 2);
        QVERIFY2(run.err.contains(u"https"), qPrintable(run.err));
    }

    // whoami --json in each state of the session; a page shown from its saved copy offline.
    void whoami_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("gate");
        QTest::addColumn<QString>("exit");
        QTest::newRow("signed out") << "out" << 3 << "out" << "fresh";
        QTest::newRow("signed in") << "in" << 0 << "ready" << "";
        QTest::newRow("ended on the server") << "expired" << 3 << "out" << "expired";
        QTest::newRow("server down") << "offline" << 0 << "offline" << "";
    }

    void whoami()
    {
        QFETCH(QString, state);
        if (state != u"out")
            login();
        const Run page = cli({"get", "webapi/tasks"});
        QVERIFY(state != u"out" || page.status == 3);
        if (state == u"expired")
            service.expire(QStringLiteral("demo"));
        if (state == u"offline")
            service.fault({{"match", "*"}, {"drop", true}, {"times", -1}});
        const Run run = cli({"whoami", "--json"});
        QTEST(run.status, "status");
        const QJsonObject me = run.json();
        QTEST(me.value(u"gate").toString(), "gate");
        QTEST(me.value(u"exit").toString(), "exit");
        if (state == u"offline") // the saved page, as it was
            QCOMPARE(cli({"get", "webapi/tasks"}).out, page.out);
        if (state == u"in") {
            QCOMPARE(me.value(u"user").toString(), QStringLiteral("demo"));
            QCOMPARE(me.value(u"role").toString(), QStringLiteral("user"));
            QCOMPARE(me.value(u"pages").toArray().size(), 4);
            QVERIFY(QJsonDocument::fromJson(page.out).isArray());
        }
        QCOMPARE(cli({"whoami"}).status, run.status); // and it stays so
    }

    void tokenLogin()
    {
        QCOMPARE(cli({"login", "--token", service.token(QStringLiteral("owner"))}).status, 0);
        QCOMPARE(cli({"whoami", "--json"}).json().value(u"role").toString(), QStringLiteral("owner"));
        QCOMPARE(cli({"login", "--token", "used-or-made-up"}).status, 1);
    }

    void everyLineInTheChosenLanguage_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("first");
        QTest::newRow("he") << "he" << "מחוברים בתור demo (משתמש)";
        QTest::newRow("ru") << "ru" << "Вы вошли как demo (пользователь)";
        QTest::newRow("en") << "en" << "Signed in as demo (user)";
    }

    void everyLineInTheChosenLanguage()
    {
        QFETCH(QString, lang);
        QFETCH(QString, first);
        login();
        // The profile says Russian; the run's own language still wins.
        QCOMPARE(cli({"prefs", "set", "lang", "ru"}).status, 0);
        const Run run = cli({"--lang", lang, "whoami"});
        QCOMPARE(run.status, 0);
        const QStringList lines = QString::fromUtf8(run.out).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines.first(), first);
        if (lang != u"en") {
            // Past the label, no English words are left: only names and values.
            for (const QString &line : lines.mid(1))
                QVERIFY2(!line.contains(u"Pages") && !line.contains(u"E-mail") && !line.contains(u"Workspace"),
                         qPrintable(line));
        }
        QCOMPARE(cli({"--lang", "fr", "whoami"}).status, 2);
    }

    void langSetReachesTheProfile()
    {
        login();
        const Run set = cli({"lang", "set", "he"});
        QCOMPARE(set.status, 0);
        QCOMPARE(set.out.trimmed(), QByteArray("he"));
        QCOMPARE(cli({"lang"}).out.trimmed(), QByteArray("he"));
        QCOMPARE(cli({"prefs", "set", "theme", "dark"}).status, 0);
        const QJsonObject prefs = cli({"prefs", "--json"}).json();
        QCOMPARE(prefs.value(u"lang").toString() + prefs.value(u"theme").toString(), u"hedark"_qs);
        QCOMPARE(cli({"lang", "set", "fr"}).status, 2);
        QCOMPARE(cli({"lang"}).out.trimmed(), QByteArray("he"));
    }

    void watchRedrawsWhenThePageChanges()
    {
        login();
        service.setPage(QStringLiteral("webapi/counter"), QJsonObject{{"count", 1}});
        QProcess process;
        process.setProcessEnvironment(cliEnvironment(home->path(), service.base()));
        process.start(QStringLiteral(HALVENMARK_CLI), {"watch", "webapi/counter", "--every", "0.2"});
        auto nextLine = [&] {
            while (!process.canReadLine())
                if (!process.waitForReadyRead(10'000))
                    return QJsonObject();
            return QJsonDocument::fromJson(process.readLine()).object();
        };
        QCOMPARE(nextLine().value(u"count").toInt(), 1);
        service.setPage(QStringLiteral("webapi/counter"), QJsonObject{{"count", 2}});
        QCOMPARE(nextLine().value(u"count").toInt(), 2);
        // The session ends on the server: the watch ends with it.
        service.expire(QStringLiteral("demo"));
        QVERIFY(process.waitForFinished(10'000));
        QCOMPARE(process.exitCode(), 3);
    }
};

QTEST_GUILESS_MAIN(CliTest)
#include "clitest.moc"
