// Which runs halvenmark-cli hands over to halvenmark-cli-devices, and that it maps none of the
// libraries the hand-over exists to avoid.

#include "commandline.h"
#include "devicecommands.h"

#include "support/clirun.h"
#include "support/testhome.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class DeviceCommandsTest : public QObject
{
    Q_OBJECT

private slots:
    void needed_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("needed");
        QTest::newRow("call") << QStringList{u"call"_s} << true;
        QTest::newRow("vault") << QStringList{u"vault"_s, u"list"_s} << true;
        QTest::newRow("play") << QStringList{u"chat"_s, u"play"_s, u"3"_s} << true;
        QTest::newRow("record") << QStringList{u"chat"_s, u"record"_s} << true;
        QTest::newRow("transcribe") << QStringList{u"chat"_s, u"transcribe"_s, u"a.wav"_s} << true;
        QTest::newRow("voice turn") << QStringList{u"chat"_s, u"send"_s, u"--voice"_s, u"a.wav"_s} << true;
        QTest::newRow("video") << QStringList{u"chat"_s, u"send"_s, u"--file"_s, u"a.txt"_s, u"--file"_s, u"clip.mp4"_s, u"hi"_s} << true;
        QTest::newRow("document") << QStringList{u"chat"_s, u"send"_s, u"--file"_s, u"notes.pdf"_s, u"hi"_s} << false;
        QTest::newRow("text") << QStringList{u"chat"_s, u"send"_s, u"play"_s} << false;
        QTest::newRow("log") << QStringList{u"chat"_s, u"log"_s} << false;
        QTest::newRow("interactive") << QStringList{u"chat"_s} << false;
        QTest::newRow("whoami") << QStringList{u"whoami"_s} << false;
    }
    void needed()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, needed);
        const CommandLine::Parsed parsed = CommandLine::parse(QStringList{u"halvenmark-cli"_s} + args);
        QVERIFY2(parsed.run, qPrintable(parsed.err));
        QCOMPARE(DeviceCommands::needed(*parsed.run), needed);
    }

    void mapsNoMediaOrGuiLibrary()
    {
        QProcess readelf;
        readelf.start(u"readelf"_s, {u"-d"_s, QStringLiteral(HALVENMARK_CLI)});
        QVERIFY(readelf.waitForFinished());
        const QByteArray needed = readelf.readAllStandardOutput();
        QVERIFY(needed.contains("libQt6Core"));
        for (const char *library : {"libav", "libsw", "libQt6Multimedia", "libQt6Gui", "libspeexdsp", "libpam"})
            QVERIFY2(!needed.contains(library), library);
    }

    // Without its second program beside it, a call says what is missing instead of failing
    // somewhere later.
    void missingDevicesProgramIsNamed()
    {
        QTemporaryDir alone;
        const QString copy = alone.filePath(u"halvenmark-cli"_s);
        QVERIFY(QFile::copy(QStringLiteral(HALVENMARK_CLI), copy));
        TestHome home;
        const CliRun run = runCli(copy, {u"call"_s}, cliEnvironment(home.path(), QUrl(u"http://127.0.0.1:9"_s)));
        QCOMPARE(run.status, 2);
        QVERIFY2(run.err.contains(u"Cannot start "_s + alone.filePath(u"halvenmark-cli-devices"_s)), qPrintable(run.err));
    }
};

QTEST_GUILESS_MAIN(DeviceCommandsTest)
#include "devicecommandstest.moc"
