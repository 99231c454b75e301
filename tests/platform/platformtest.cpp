// Files, folders and secrets on disk: atomic replacement, owner-only access, a full disk.

#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "platform/debouncer.h"
#include "platform/filesecretstore.h"
#include "platform/wavfile.h"
#include "support/fakesleeper.h"
#include "support/sync.h"
#include "support/testhome.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

using namespace Qt::StringLiterals;

#include <sys/mount.h>

namespace {

constexpr auto ownerFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr auto ownerFolder = ownerFile | QFileDevice::ExeOwner;
constexpr auto others = QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup |
                        QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;

} // namespace

class PlatformTest : public QObject
{
    Q_OBJECT

private slots:
    void everythingUnderTheDataFolderIsOwnerOnly()
    {
        TestHome home;
        const QString root = AppData::directory();
        // Through the helpers, and the way other areas write (their own folders, QSaveFile).
        QVERIFY(AtomicFile::write(AppData::path("a/b/page"), "x"));
        QVERIFY(
            AtomicFile::write(AppData::path("profile.json"), "{}"));
        QVERIFY(QDir().mkpath(AppData::path("outbox/turn-1")));
        QSaveFile journal(AppData::path("outbox/turn-1/journal"));
        QVERIFY(journal.open(QIODevice::WriteOnly));
        journal.write("j");
        QVERIFY(journal.commit());
        AppData::setSetting("rb.lang", "ru");
        QVERIFY(Sync::run(FileSecretStore(AppData::path("secrets.json")).write("session", "c1")));

        int seen = 0;
        QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QFileInfo info(it.next());
            ++seen;
            QVERIFY2((info.permissions() & others) == 0, qPrintable(info.filePath()));
            QVERIFY2((info.permissions() & (info.isDir() ? ownerFolder : ownerFile)) ==
                         (info.isDir() ? ownerFolder : ownerFile),
                     qPrintable(info.filePath()));
        }
        QCOMPARE(seen, 9);
    }

    void settingsSeeChangesFromOutside()
    {
        TestHome home;
        AppData::setSetting("rb.lang", "he");
        QCOMPARE(AppData::setting("rb.lang").toString(), QStringLiteral("he"));
        // Another process writes the file: a read moments later sees it.
        QSettings other(QDir(home.path()).filePath("settings.ini"), QSettings::IniFormat);
        other.setValue("rb.lang", "ru");
        other.sync();
        QTRY_COMPARE_WITH_TIMEOUT(AppData::setting("rb.lang").toString(), QStringLiteral("ru"),
                                  1000);
        QFile::remove(other.fileName());
        QTRY_COMPARE_WITH_TIMEOUT(AppData::setting("rb.lang", "none").toString(),
                                  QStringLiteral("none"), 1000);
    }

    void fileSecretsLeaveOtherItemsAlone()
    {
        TestHome home;
        FileSecretStore store(AppData::path("secrets.json"));
        QVERIFY(Sync::run(store.write("session", "c1")));
        QVERIFY(Sync::run(store.write("other", "o")));
        QVERIFY(Sync::run(store.remove("session")));
        QCOMPARE(Sync::run(store.read("session")), std::nullopt);
        QCOMPARE(Sync::run(store.read("other")), std::optional<QString>("o"));
        // Removing what is not there does not rewrite the file.
        const QDateTime changed =
            QFileInfo(store.path()).fileTime(QFileDevice::FileMetadataChangeTime);
        QTest::qWait(20);
        QVERIFY(Sync::run(store.remove("session")));
        QCOMPARE(QFileInfo(store.path()).fileTime(QFileDevice::FileMetadataChangeTime), changed);
        QVERIFY(Sync::run(store.remove("other")));
        QVERIFY(!QFile::exists(store.path()));
    }

    // A refused write leaves the old file and no half-written one beside it.
    void refusedWriteKeepsTheOldFile_data()
    {
        QTest::addColumn<bool>("readOnly"); // else the disk is full
        QTest::newRow("full disk") << false;
        QTest::newRow("read-only folder") << true; // root writes through any mode bits
    }

    void refusedWriteKeepsTheOldFile()
    {
        QFETCH(bool, readOnly);
        QTemporaryDir mountPoint;
        const QByteArray where = QFile::encodeName(mountPoint.path());
        if (::mount("tmpfs", where.constData(), "tmpfs", 0, "size=64k") != 0)
            QSKIP("mounting a small tmpfs is not allowed here; refused writes are not tested");
        const auto unmount = qScopeGuard([&] { ::umount2(where.constData(), MNT_DETACH); });
        const QString file = QDir(mountPoint.path()).filePath("transcript");
        QVERIFY(AtomicFile::write(file, "the old contents"));
        if (readOnly) {
            QCOMPARE(::mount("tmpfs", where.constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
        } else {
            // A small write still fits in the file's buffer and fails only later.
            QFile filler(QDir(mountPoint.path()).filePath("filler"));
            QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
            while (filler.write(QByteArray(4096, 'f')) > 0) {
            }
        }
        if (!readOnly) // refused at the open, before any bytes
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("could not write"));
        QVERIFY(!AtomicFile::write(file, QByteArray(8 * 1024, 'x')));
        QCOMPARE(AtomicFile::read(file), std::optional<QByteArray>("the old contents"));
        QCOMPARE(QDir(mountPoint.path()).entryList(QDir::Files | QDir::Hidden).filter("transcript"),
                 QStringList{"transcript"});
    }

    // Outside the data folder too, a replaced file that others could read is closed to them.
    void atomicFilesAreOwnerOnly()
    {
        QTemporaryDir dir;
        const QString loose = dir.filePath("loose.txt");
        QVERIFY(QFile(loose).open(QIODevice::WriteOnly));
        QVERIFY(QFile::setPermissions(loose, ownerFile | QFileDevice::ReadGroup | QFileDevice::ReadOther));
        QVERIFY(AtomicFile::write(loose, "new"));
        QCOMPARE(int(QFileInfo(loose).permissions() & (ownerFolder | others)), int(ownerFile));
    }

    // A burst of requests runs the action once, after the last; flush runs it now; never
    // after its owner is gone.
    void debouncer()
    {
        FakeSleeper sleeper;
        auto owner = std::make_unique<QObject>();
        int runs = 0;
        Debouncer d(owner.get(), std::chrono::milliseconds(500), [&] { ++runs; }, &sleeper);
        for (int i = 0; i < 3; ++i)
            d.schedule();
        QVERIFY(d.pending());
        sleeper.advance();
        QTRY_COMPARE(runs, 1);
        QVERIFY(!d.pending());
        d.schedule();
        d.flush();
        QCOMPARE(runs, 2);
        sleeper.advance(); // the flushed wait ends without a second run
        QTest::qWait(20);
        QCOMPARE(runs, 2);
        d.schedule();
        owner.reset();
        sleeper.advance();
        QTest::qWait(20);
        QCOMPARE(runs, 2);
    }

    void wav_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("frames"); // -1: refused
        const auto wav = [](quint16 format, quint16 channels, quint16 bits, quint32 dataSize,
                            int dataBytes, const QByteArray &extra = {}) {
            WavFile w{16000, channels, QByteArray(dataBytes, '\1')};
            QByteArray b = w.bytes();
            qToLittleEndian(format, b.data() + 20);
            qToLittleEndian(bits, b.data() + 34);
            qToLittleEndian(dataSize, b.data() + 40);
            return b.insert(36, extra);
        };
        QTest::newRow("mono") << wav(1, 1, 16, 8, 8) << 4;
        QTest::newRow("stereo") << wav(1, 2, 16, 8, 8) << 2;
        QTest::newRow("extensible") << wav(0xFFFE, 1, 16, 4, 4) << 2;
        QTest::newRow("a chunk before the data") << wav(1, 1, 16, 4, 4, "LIST\3\0\0\0abc\0"_ba) << 2;
        QTest::newRow("cut short: whole frames") << wav(1, 2, 16, 1000, 7) << 1;
        QTest::newRow("odd data size: whole frames") << wav(1, 1, 16, 3, 3) << 1;
        QTest::newRow("no data chunk") << wav(1, 1, 16, 0, 0).left(36) << 0;
        QTest::newRow("8-bit") << wav(1, 1, 8, 4, 4) << -1;
        QTest::newRow("float") << wav(3, 1, 16, 4, 4) << -1;
        QTest::newRow("no channels") << wav(1, 0, 16, 4, 4) << -1;
        QTest::newRow("not RIFF") << "RIFX\0\0\0\0WAVE"_ba << -1;
        QTest::newRow("empty") << QByteArray() << -1;
    }

    void wav()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, frames);
        QString error;
        const WavFile w = WavFile::parse(bytes, &error);
        QCOMPARE(w.isValid(), frames >= 0);
        QCOMPARE(error.isEmpty(), frames >= 0);
        if (frames >= 0)
            QCOMPARE(w.samples.size(), frames * w.channels * 2);
    }
};

QTEST_GUILESS_MAIN(PlatformTest)
#include "platformtest.moc"
