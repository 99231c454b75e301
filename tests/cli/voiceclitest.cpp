// The terminal client's voice commands as scripts drive them, and a real client process killed
// while a voice turn goes up: after the next start the server holds the turn exactly once.

#include "support/clirun.h"
#include "support/service.h"
#include "support/testhome.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>
#include <QtEndian>

class VoiceCliTest : public QObject
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

    CliRun cli(const QStringList &args)
    {
        return runCli(QStringLiteral(HALVENMARK_CLI), args, environment(), {}, 60'000);
    }

    // The user's messages the server holds (the agent answers them too).
    QJsonArray stored()
    {
        QJsonArray users;
        const QJsonArray all =
            service.control("GET", QStringLiteral("messages?user=demo&conversation_id=main"))
                .value(u"messages")
                .toArray();
        for (const QJsonValue &m : all) {
            if (m[u"role"].toString() == u"user")
                users.append(m);
        }
        return users;
    }

    // Half a second of a 16 kHz tone whose loudest sample is `peak` of full scale.
    static QString writeNote(const QString &folder, double peak)
    {
        QByteArray samples;
        for (int i = 0; i < 8000; ++i) {
            char bytes[2];
            qToLittleEndian(qint16(std::lround(peak * 32767 * (i % 2 ? 1 : -1))), bytes);
            samples.append(bytes, 2);
        }
        QByteArray head(
            "RIFF\0\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x80\x3e\0\0\0\x7d\0\0\x02\0\x10\0data", 40);
        char size[4];
        qToLittleEndian(quint32(samples.size()), size);
        const QString path = folder + QStringLiteral("/note.wav");
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) ||
            file.write(head + QByteArray(size, 4) + samples) < 0)
            return {};
        return path;
    }

private slots:
    void initTestCase() { QVERIFY2(service.running(), "the reference service did not start"); }

    void init()
    {
        home.reset();
        home = std::make_unique<TestHome>();
        service.reset();
        service.control("POST", QStringLiteral("agent"), {{"step_delay", 0.01}});
        QCOMPARE(runCli(QStringLiteral(HALVENMARK_CLI), {"login", "--user", "demo"}, environment(),
                        "demo-password\n")
                     .status,
                 0);
        service.control("POST", QStringLiteral("voice/transcript"),
                        {{"user", "demo"}, {"text", "call\x1b[31m mom"}});
        wav = writeNote(home->path(), 0.25);
        QVERIFY(!wav.isEmpty());
    }

    void commands_data()
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

    void commands()
    {
        QFETCH(QStringList, args);
        QFETCH(int, status);
        QFETCH(int, stored);
        args.replaceInStrings(QStringLiteral("@"), wav);
        const CliRun run = cli(args);
        QCOMPARE(run.status, status);
        QCOMPARE(this->stored().size(), stored);
        if (status == 0) {
            // What the server heard, with its control characters made visible.
            QVERIFY2(run.out.contains("call"), run.out.constData());
            QVERIFY(!run.out.contains('\x1b'));
        }
        if (status == 0 && stored == 1) {
            const QJsonObject fields =
                service.control("POST", QStringLiteral("voice/received"), {{"user", "demo"}})
                    .value(u"received")
                    .toArray()
                    .last()
                    .toObject();
            QCOMPARE(fields.value(u"peak").toString().toDouble(), 0.25);
        }
    }

    void killedMidUpload_data()
    {
        QTest::addColumn<QByteArray>("pauseAt");
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<int>("storedBeforeRestart");
        QTest::newRow("after request.body is written")
            << QByteArray("body-written") << QJsonObject() << 0;
        QTest::newRow("after the server stored the message")
            << QByteArray()
            << QJsonObject{{"match", "webapi/voice"}, {"after", "hold"}, {"delay", 30}} << 1;
        QTest::newRow("after receipt.json is written")
            << QByteArray("receipt-written") << QJsonObject() << 1;
    }

    void killedMidUpload()
    {
        QFETCH(QByteArray, pauseAt);
        QFETCH(QJsonObject, fault);
        QFETCH(int, storedBeforeRestart);
        if (!fault.isEmpty())
            service.fault(fault);

        QProcess client;
        client.setProcessEnvironment(environment(pauseAt));
        client.setReadChannel(QProcess::StandardError);
        client.start(QStringLiteral(HALVENMARK_CLI), {"chat", "send", "--voice", wav});
        QVERIFY(client.waitForStarted());
        if (!pauseAt.isEmpty()) {
            QString err;
            while (!err.contains(QStringLiteral("paused at ") + QString::fromLatin1(pauseAt)) &&
                   client.waitForReadyRead(20000))
                err += QString::fromUtf8(client.readAllStandardError());
            QVERIFY2(err.contains(u"paused at"), qPrintable(err));
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(stored().size(), 1, 20'000);
        }
        client.kill(); // SIGKILL: no clean-up of any kind
        QVERIFY(client.waitForFinished(10'000));
        QCOMPARE(stored().size(), storedBeforeRestart);
        service.control("DELETE", QStringLiteral("faults"));

        // The next start settles it: from the kept answer, or by sending it once more.
        QCOMPARE(cli({"chat", "drain"}).status, 0);
        QCOMPARE(QJsonDocument::fromJson(cli({"chat", "outbox", "--json"}).out).array().size(), 0);
        QCOMPARE(stored().size(), 1);
    }
};

QTEST_GUILESS_MAIN(VoiceCliTest)
#include "voiceclitest.moc"
