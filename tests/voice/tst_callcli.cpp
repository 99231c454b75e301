// The terminal's live call end to end: a spoken WAV file into the reference service's agent,
// its spoken reply out into a WAV file, a session rotation in the middle, and the frames the
// service saw from the client.
#include "platform/wavfile.h"
#include "support/clirun.h"
#include "support/service.h"
#include "support/testhome.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// Seconds of a 24 kHz mono file whose 20 ms frames are louder than -40 dBFS.
double voicedSeconds(const WavFile &wav)
{
    const auto *s = reinterpret_cast<const qint16 *>(wav.samples.constData());
    const qsizetype n = wav.samples.size() / 2;
    int voiced = 0;
    for (qsizetype at = 0; at + 480 <= n; at += 480) {
        double sum = 0;
        for (int i = 0; i < 480; ++i)
            sum += double(s[at + i]) * s[at + i];
        voiced += 10 * std::log10(sum / 480 / (32768.0 * 32768.0) + 1e-12) > -40;
    }
    return voiced * 0.02;
}

} // namespace

class CallCliTest : public QObject
{
    Q_OBJECT

    Service service;
    std::unique_ptr<TestHome> home;

    CliRun cli(const QStringList &args, const QByteArray &input = {})
    {
        return runCli(QStringLiteral(HALVENMARK_CLI), args,
                      cliEnvironment(home->path(), service.base()), input, 60'000);
    }

    // The user's question, spoken by the service at 44.1 kHz in stereo.
    QString spokenInput()
    {
        QNetworkAccessManager network;
        QNetworkReply *reply = network.get(QNetworkRequest(
            service.base().resolved(QUrl(u"/_control/voice-live/speech?rate=44100&channels=2"_s))));
        QEventLoop loop;
        connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        const QString path = home->path() + u"/question.wav"_s;
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(reply->readAll()) <= 44)
            return {};
        reply->deleteLater();
        return path;
    }

private slots:
    void initTestCase() { QVERIFY2(service.running(), "the reference service did not start"); }

    void init()
    {
        home = std::make_unique<TestHome>();
        service.reset();
    }

    void aRotatedCallResumesAndKeepsTheProtocol()
    {
        QCOMPARE(cli({"login", "--user", "demo"}, "demo-password\n").status, 0);
        service.control("POST", u"voice-live/agent"_s, {{u"rotate_after"_s, 1}});
        const QString input = spokenInput();
        QVERIFY(!input.isEmpty());
        const QString output = home->path() + u"/reply.wav"_s;
        const CliRun run =
            cli({"call", "--input", input, "--output", output, "--seconds", "11", "--json"});
        QCOMPARE(run.status, 0);

        QStringList phases;
        QStringList said;
        for (const QByteArray &line : run.out.split('\n')) {
            const QJsonObject o = QJsonDocument::fromJson(line).object();
            if (o.contains(u"phase"_s))
                phases << o[u"phase"_s].toString();
            if (o.contains(u"line"_s))
                said << o[u"line"_s][u"role"_s].toString() + u':' +
                            o[u"line"_s][u"text"_s].toString();
        }
        QVERIFY2(phases.contains(u"reconnecting"_s), qPrintable(phases.join(u' ')));
        QCOMPARE(phases.last(), u"idle"_s);
        QVERIFY(said.contains(u"user:What is the weather in Lisbon tomorrow?"_s));

        // The order of frames on the wire is tst_call's; here, that the real server refused
        // nothing across the rotation (it logs a stale handle or early audio as a fault) and
        // that the second session resumed the first.
        const QJsonArray sessions =
            service.control("GET", u"voice-live/frames?user=demo"_s)[u"sessions"_s].toArray();
        QCOMPARE(sessions.size(), 2);
        for (const QJsonValue &session : sessions) {
            for (const QJsonValue &v : session[u"log"_s].toArray())
                QVERIFY2(v[u"dir"_s] != u"fault"_s, qPrintable(v[u"detail"_s].toString()));
        }
        QVERIFY(!sessions[1][u"log"_s][0][u"resume"_s].toString().isEmpty());

        const WavFile reply = WavFile::read(output);
        QCOMPARE(reply.sampleRate, 24000);
        QCOMPARE(reply.channels, 1);
        QVERIFY2(voicedSeconds(reply) > 2.0, "the agent's spoken reply is not in the output");
    }

    void theServerEndsOrWarns_data()
    {
        QTest::addColumn<QString>("frame");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("lastPhase");
        QTest::addColumn<QString>("seconds"); // --seconds: only the warning waits for it
        QTest::newRow("fatal error fails the call")
            << R"({"type":"error","error":"quota","detail":"Quota used up","fatal":true})" << 1
            << "Quota used up"
            << "failed"
            << "600";
        QTest::newRow("a warning lets it run to its end")
            << R"({"type":"error","error":"slow","detail":"lagging"})" << 0 << QString() << "idle"
            << "3";
        QTest::newRow("closed by the server")
            << R"({"type":"closed","reason":"bye"})" << 0 << QString() << "idle"
            << "600";
    }
    void theServerEndsOrWarns()
    {
        QFETCH(QString, frame);
        QFETCH(int, status);
        QFETCH(QString, error);
        QFETCH(QString, lastPhase);
        QFETCH(QString, seconds);
        QCOMPARE(cli({"login", "--user", "demo"}, "demo-password\n").status, 0);
        const QString silence = home->path() + u"/silence.wav"_s;
        const WavFile quiet{16000, 1, QByteArray(32000, '\0')};
        QVERIFY(quiet.write(silence));
        QProcess process;
        process.setProcessEnvironment(cliEnvironment(home->path(), service.base()));
        process.start(QStringLiteral(HALVENMARK_CLI),
                      {"--lang", "en", "call", "--input", silence, "--output",
                       home->path() + u"/out.wav"_s, "--seconds", seconds, "--json"});
        QByteArray out;
        while (!out.contains(R"("phase":"listening")") && process.waitForReadyRead(10'000))
            out += process.readAllStandardOutput();
        QVERIFY2(out.contains(R"("phase":"listening")"), out.constData());
        const QJsonObject sent =
            service.control("POST", u"voice-live/send"_s,
                            {{u"user"_s, u"demo"_s},
                             {u"frame"_s, QJsonDocument::fromJson(frame.toUtf8()).object()}});
        QCOMPARE(sent[u"sent"_s].toInt(), 1);
        QVERIFY(process.waitForFinished(20'000));
        out += process.readAllStandardOutput();
        const QString err = QString::fromUtf8(process.readAllStandardError());
        QCOMPARE(process.exitCode(), status);
        QVERIFY2(error.isEmpty() ? err.isEmpty() : err.contains(error), qPrintable(err));
        const QList<QByteArray> lines = out.trimmed().split('\n');
        QCOMPARE(QJsonDocument::fromJson(lines.last()).object()[u"phase"_s].toString(), lastPhase);
    }

    void failuresGiveTheirExitStatus_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("error");
        QTest::newRow("not signed in")
            << QString() << QStringList{"call", "--seconds", "1"} << 3 << "not signed in";
        QTest::newRow("calls not enabled")
            << "plain" << QStringList{"call", "--seconds", "1"} << 1 << "not enabled";
        QTest::newRow("input not a WAV")
            << "demo" << QStringList{"call", "--input", "/etc/hostname"} << 2 << "/etc/hostname";
        QTest::newRow("threshold clamps")
            << "demo" << QStringList{"call", "threshold", "-70"} << 0 << QString();
    }
    void failuresGiveTheirExitStatus()
    {
        QFETCH(QString, user);
        QFETCH(QStringList, args);
        QFETCH(int, status);
        QFETCH(QString, error);
        if (user == u"plain")
            service.control("POST", u"user"_s, {{u"user"_s, user}, {u"password"_s, u"pw"_s}});
        if (!user.isEmpty())
            QCOMPARE(cli({"login", "--user", user},
                         (user == u"plain" ? "pw" : "demo-password") + "\n"_ba)
                         .status,
                     0);
        const CliRun run = cli(QStringList{"--lang", "en"} + args);
        QCOMPARE(run.status, status);
        QVERIFY2(run.err.contains(error, Qt::CaseInsensitive), qPrintable(run.err));
        if (args.contains(u"threshold"_s))
            QVERIFY2(run.out.contains("-50 dB"), run.out.constData());
    }
};

QTEST_GUILESS_MAIN(CallCliTest)
#include "tst_callcli.moc"
