// Crash capture in a real process: the terminal client crashing, hanging and ending
// normally, then reporting on its next start.

#include "support/clirun.h"
#include "support/service.h"
#include "support/testhome.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <signal.h>

using namespace Qt::StringLiterals;

class CrashCliTest : public QObject
{
    Q_OBJECT

    Service service;
    std::unique_ptr<TestHome> home;

    void prepare(QProcess &process)
    {
        process.setProcessEnvironment(cliEnvironment(home->path(), service.base()));
    }

    // Exit status, or -signal when the process died of one.
    int cli(const QStringList &args, const QByteArray &input = {})
    {
        QProcess process;
        prepare(process);
        process.start(QStringLiteral(HALVENMARK_CLI), args);
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(20'000)) {
            process.kill();
            process.waitForFinished();
            return -1000; // it never ended: a handler that deadlocked
        }
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode()
                                                            : -process.exitCode();
    }

    // The reports the service took, in order.
    QList<QJsonObject> reports()
    {
        return Service::bodies(service.requests(QStringLiteral("webapi/client-report"), true));
    }

    QString crashFolder() const { return QDir(home->path()).filePath("crash"); }

private slots:
    void initTestCase() { QVERIFY2(service.running(), "the reference service did not start"); }

    void init()
    {
        home.reset();
        home = std::make_unique<TestHome>();
        service.reset();
        QCOMPARE(cli({"login", "--user", "demo"}, "demo-password\n"), 0);
    }

    void crashesTwiceThenReports_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<int>("firstSignal");
        QTest::addColumn<int>("secondSignal");
        QTest::addColumn<QString>("firstReason");
        QTest::newRow("segv, abrt") << "SIGSEGV" << "ABRT" << SIGSEGV << SIGABRT << "signal 11";
        QTest::newRow("bus, trap") << "7" << "trap" << SIGBUS << SIGTRAP << "signal 7";
        QTest::newRow("exception, fpe") << "exception" << "SIGFPE" << SIGABRT << SIGFPE
                                        << "exception std::runtime_error: debug crash";
    }

    void crashesTwiceThenReports()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        QTEST(-cli({"debug", "crash", first}), "firstSignal");
        // The second run takes the first one's report in, then dies the same way.
        QTEST(-cli({"debug", "crash", second}), "secondSignal");
        service.clearLog();
        QCOMPARE(cli({"debug", "report"}), 0);
        const QList<QJsonObject> sent = reports();
        QCOMPARE(sent.size(), 2); // the runs that ended normally (login, report) add nothing
        QCOMPARE(sent[0]["kind"].toString(), u"crash"_s);
        QTEST(sent[0]["reason"].toString(), "firstReason");
        QFETCH(int, secondSignal);
        QCOMPARE(sent[1]["reason"].toString(), u"signal %1"_s.arg(secondSignal));
        // Frames follow the first line.
        QVERIFY(sent[1]["trace"].toString().count(u'\n') > 2);
        QVERIFY(!QFile::exists(QDir(crashFolder()).filePath("crash.txt")));
    }

    void hangKilledIsReported()
    {
        QProcess process;
        prepare(process);
        process.start(QStringLiteral(HALVENMARK_CLI), {"debug", "hang", "60"});
        QVERIFY(process.waitForStarted());
        const QString run = QDir(crashFolder()).filePath("run.json");
        const auto stall = [&] {
            QFile file(run);
            if (!file.open(QIODevice::ReadOnly))
                return 0.0;
            return QJsonDocument::fromJson(file.readAll())["worst_stall_s"].toDouble();
        };
        // The main thread is asleep: only the watcher can write this.
        QTRY_VERIFY_WITH_TIMEOUT(stall() >= 3.5, 10'000);
        process.kill();
        process.waitForFinished();
        service.clearLog();
        QCOMPARE(cli({"debug", "report"}), 0);
        const QList<QJsonObject> sent = reports();
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent[0]["kind"].toString(), u"hang"_s);
        QVERIFY(sent[0]["reason"].toString().startsWith(u"main thread stuck "_s));
        QVERIFY(sent[0]["foreground"].toBool());
    }
};

QTEST_GUILESS_MAIN(CrashCliTest)
#include "crashclitest.moc"
