// Files, folders and secrets on disk: atomic replacement, owner-only access, a full disk.

#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "platform/filesecretstore.h"
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
        QCOMPARE(seen, 8);
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

    void fullDiskKeepsTheOldFile()
    {
        QTemporaryDir mountPoint;
        const QByteArray where = QFile::encodeName(mountPoint.path());
        if (::mount("tmpfs", where.constData(), "tmpfs", 0, "size=64k") != 0)
            QSKIP("mounting a small tmpfs is not allowed here; the full-disk case is not tested");
        const auto unmount = qScopeGuard([&] { ::umount2(where.constData(), MNT_DETACH); });
        const QString file = QDir(mountPoint.path()).filePath("transcript");
        QVERIFY(AtomicFile::write(file, "the old contents"));
        // The disk fills up; a small write still fits in the file's buffer and fails only later.
        QFile filler(QDir(mountPoint.path()).filePath("filler"));
        QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        while (filler.write(QByteArray(4096, 'f')) > 0) {
        }
        filler.close();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("could not write"));
        QVERIFY(!AtomicFile::write(file, QByteArray(8 * 1024, 'x')));
        QCOMPARE(AtomicFile::read(file), std::optional<QByteArray>("the old contents"));
    }
};

QTEST_GUILESS_MAIN(PlatformTest)
#include "platformtest.moc"
