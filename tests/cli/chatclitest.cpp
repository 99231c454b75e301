// The terminal client's chat and voice commands as scripts drive them, and a real client
// process killed at each step of a text or voice send: after the next start the server holds
// the turn exactly once.

#include "platform/wavfile.h"
#include "support/clirun.h"
#include "support/service.h"
#include "support/testhome.h"

#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>
#include <QtEndian>

#include <cmath>

using Run = CliRun;

class ChatCliTest : public QObject
{
    Q_OBJECT

    Service service;
    std::unique_ptr<TestHome> home;
    QString wav;

    QProcessEnvironment environment(const QByteArray &pauseAt = {})
    {
        QProcessEnvironment env = cliEnvironment(home->path(), service.base());
        if (!pauseAt.isEmpty())
            env.insert(QStringLiteral("HALVENMARK_PAUSE_AT"), QString::fromLatin1(pauseAt));
        return env;
    }

    Run cli(const QStringList &args, const QByteArray &input = {})
    {
        return runCli(QStringLiteral(HALVENMARK_CLI), args, environment(), input, 60'000);
    }

    QJsonArray stored() { return service.messages(); }

    int userTurns()
    {
        int users = 0;
        for (const QJsonValue &m : stored())
            users += m[u"role"].toString() == u"user";
        return users;
    }

    // Outbox folders on disk, whoever is signed in.
    int outboxFolders()
    {
        int n = 0;
        QDirIterator it(home->path(), {QStringLiteral("state.json")}, QDir::Files,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            n += it.next().contains(u"/chat-outbox/");
        return n;
    }

    QJsonArray outbox() { return QJsonDocument::fromJson(cli({"chat", "outbox", "--json"}).out).array(); }

    // Half a second of a 16 kHz tone whose loudest sample is `peak` of full scale.
    static QString writeNote(const QString &folder, double peak)
    {
        WavFile note{16000, 1, {}};
        for (int i = 0; i < 8000; ++i) {
            char bytes[2];
            qToLittleEndian(qint16(std::lround(peak * 32767 * (i % 2 ? 1 : -1))), bytes);
            note.samples.append(bytes, 2);
        }
        const QString path = folder + QStringLiteral("/note.wav");
        return note.write(path) ? path : QString();
    }

private slots:
    void initTestCase() { QVERIFY2(service.running(), "the reference service did not start"); }

    void init()
    {
        home.reset();
        home = std::make_unique<TestHome>();
        service.reset();
        service.control("POST", QStringLiteral("agent"), {{"step_delay", 0.01}});
        QCOMPARE(cli({"login", "--user", "demo"}, "demo-password\n").status, 0);
        service.control("POST", QStringLiteral("voice/transcript"),
                        {{"user", "demo"}, {"text", "call\x1b[31m mom"}});
        wav = writeNote(home->path(), 0.25);
        QVERIFY(!wav.isEmpty());
    }

    // Unsent turns and the end of a session: an expiry keeps them for the next sign-in, a
    // sign-out asks first, a deleted account takes them along.
    void unsentTurnsWhenTheSessionEnds_data()
    {
        QTest::addColumn<QStringList>("ending"); // empty: the session expires
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("kept");
        QTest::newRow("expired") << QStringList() << 3 << 1;
        QTest::newRow("logout") << QStringList{"logout"} << 1 << 1;
        QTest::newRow("logout --force") << QStringList{"logout", "--force"} << 0 << 0;
        QTest::newRow("delete-account, not confirmed") << QStringList{"delete-account"} << 1 << 1;
        QTest::newRow("delete-account --yes") << QStringList{"delete-account", "--yes"} << 0 << 0;
    }

    void unsentTurnsWhenTheSessionEnds()
    {
        QFETCH(QStringList, ending);
        QFETCH(int, status);
        QFETCH(int, kept);
        service.fault({{"match", "webapi/chat"}, {"drop", true}, {"times", -1}});
        QCOMPARE(cli({"chat", "send", "not yet sent"}).status, 4);
        service.control("DELETE", QStringLiteral("faults"));
        if (ending.isEmpty())
            service.expire(QStringLiteral("demo"));
        const Run run = cli(ending.isEmpty() ? QStringList{"chat", "drain"} : ending);
        QCOMPARE(run.status, status);
        if (ending == QStringList{"logout"})
            QVERIFY2(run.err.contains(u"1 messages are not sent"), qPrintable(run.err));
        QCOMPARE(outboxFolders(), kept);
        if (kept == 0)
            return;
        cli({"login", "--user", "demo"}, "demo-password\n");
        QCOMPARE(outbox().size(), 1);
        QCOMPARE(cli({"chat", "drain"}).status, 0);
        QCOMPARE(stored().first()[u"text"].toString(), QStringLiteral("not yet sent"));
        QCOMPARE(outbox().size(), 0);
    }

    // Server text never reaches the terminal raw.
    void serverTextIsMadeSafe_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QJsonObject>("fault");
        QTest::newRow("a bridge message in the log") << QStringList{"chat", "log"} << QJsonObject();
        QTest::newRow("a refusal's detail")
            << QStringList{"chat", "send", "hi"}
            << QJsonObject{{"match", "webapi/chat"}, {"status", 403},
                           {"body", "{\"error\":\"no\",\"detail\":\"\\u001b]0;owned\\u0007\"}"}};
        QTest::newRow("a page's error detail")
            << QStringList{"get", "webapi/tasks"}
            << QJsonObject{{"match", "webapi/tasks"}, {"status", 409},
                           {"body", "{\"error\":\"no\",\"detail\":\"\\u001b[2Jgone\"}"}};
    }

    void serverTextIsMadeSafe()
    {
        QFETCH(QStringList, args);
        QFETCH(QJsonObject, fault);
        service.control("POST", QStringLiteral("message"),
                        {{"user", "demo"}, {"role", "user"}, {"source", "telegram"},
                         {"text", "\u001b[2J\u001b]0;owned\u0007hello"}});
        if (!fault.isEmpty())
            service.fault(fault);
        const Run run = cli(args);
        QVERIFY2(!run.out.contains('\x1b') && !run.err.contains(QChar(0x1b)), run.out.constData());
        QVERIFY2(run.out.contains("␛") || run.err.contains(u"␛"), qPrintable(run.err));
    }

    void voiceCommands_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("stored");
        QTest::newRow("send --voice") << QStringList{"chat", "send", "--voice", "@"} << 0 << 1;
        QTest::newRow("record --input")
            << QStringList{"chat", "record", "--seconds", "0.3", "--input", "@"} << 0 << 1;
        QTest::newRow("transcribe") << QStringList{"chat", "transcribe", "@"} << 0 << 0;
        QTest::newRow("not a WAV file")
            << QStringList{"chat", "send", "--voice", HALVENMARK_CLI} << 1 << 0;
        QTest::newRow("record --seconds 0")
            << QStringList{"chat", "record", "--seconds", "0"} << 2 << 0;
        QTest::newRow("transcribe without a file") << QStringList{"chat", "transcribe"} << 2 << 0;
    }

    void voiceCommands()
    {
        QFETCH(QStringList, args);
        QFETCH(int, status);
        QFETCH(int, stored);
        args.replaceInStrings(QStringLiteral("@"), wav);
        const Run run = cli(args);
        QCOMPARE(run.status, status);
        QCOMPARE(userTurns(), stored);
        if (status == 0) {
            // What the server heard, with its control characters made visible.
            QVERIFY2(run.out.contains("call"), run.out.constData());
            QVERIFY(!run.out.contains('\x1b'));
        }
    }

    // A text turn or a voice upload.
    void killedMidSend_data()
    {
        QTest::addColumn<bool>("voice");
        QTest::addColumn<QByteArray>("pauseAt");
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<int>("storedBeforeRestart");
        for (const bool voice : {false, true}) {
            const char *kind = voice ? "voice" : "text";
            QTest::addRow("%s, after request.body is written", kind)
                << voice << QByteArray("body-written") << QJsonObject() << 0;
            QTest::addRow("%s, after the server stored the message", kind)
                << voice << QByteArray()
                << QJsonObject{{"match", voice ? "webapi/voice" : "webapi/chat"},
                               {"after", "hold"},
                               {"delay", 30}}
                << 1;
            QTest::addRow("%s, after receipt.json is written", kind)
                << voice << QByteArray("receipt-written") << QJsonObject() << 1;
        }
    }

    void killedMidSend()
    {
        QFETCH(bool, voice);
        QFETCH(QByteArray, pauseAt);
        QFETCH(QJsonObject, fault);
        QFETCH(int, storedBeforeRestart);
        if (!fault.isEmpty())
            service.fault(fault);

        QProcess client;
        client.setProcessEnvironment(environment(pauseAt));
        client.setReadChannel(QProcess::StandardError);
        client.start(QStringLiteral(HALVENMARK_CLI),
                     voice ? QStringList{"chat", "send", "--voice", wav}
                           : QStringList{"chat", "send", "exactly once, please"});
        QVERIFY(client.waitForStarted());
        if (!pauseAt.isEmpty()) {
            QString err;
            while (!err.contains(QStringLiteral("paused at ") + QString::fromLatin1(pauseAt)) && client.waitForReadyRead(20000))
                err += QString::fromUtf8(client.readAllStandardError());
            QVERIFY2(err.contains(u"paused at"), qPrintable(err));
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(userTurns(), 1, 20'000);
        }
        client.kill(); // SIGKILL: no clean-up of any kind
        QVERIFY(client.waitForFinished(10'000));
        // The agent may have answered meanwhile: only the user's turns are counted.
        QCOMPARE(userTurns(), storedBeforeRestart);
        service.control("DELETE", QStringLiteral("faults"));

        // The next start settles it: from the kept answer, or by sending it once more.
        QCOMPARE(cli({"chat", "drain"}).status, 0);
        QCOMPARE(outbox().size(), 0);
        QCOMPARE(userTurns(), 1);
    }
};

QTEST_GUILESS_MAIN(ChatCliTest)
#include "chatclitest.moc"
