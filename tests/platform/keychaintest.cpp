// The keychain store against a real secret service (scripts/test runs it under one; skipped
// elsewhere), with the owner-only file it falls back to.

#include "platform/filesecretstore.h"
#include "platform/keychainsecretstore.h"
#include "support/sync.h"
#include "support/testhome.h"

#include <QDir>
#include <QTest>
#include <QUuid>

class KeychainTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    QString filePath;
    std::unique_ptr<KeychainSecretStore> keychain;

    FileSecretStore file() const { return FileSecretStore(filePath); }

private slots:
    void init()
    {
        if (!qEnvironmentVariableIsSet("HALVENMARK_TEST_KEYCHAIN"))
            QSKIP("no secret service for this run (scripts/test runs one)");
        home = std::make_unique<TestHome>();
        filePath = QDir(home->path()).filePath("secrets.json");
        const QString service = "Halvenmark test " + QUuid::createUuid().toString();
        keychain = std::make_unique<KeychainSecretStore>(
            service, std::make_unique<FileSecretStore>(filePath));
    }

    void aSessionKeptInTheFileIsFound()
    {
        // Written by a run whose secret service had no usable collection.
        QVERIFY(Sync::run(file().write("session", "from-file")));
        QCOMPARE(Sync::run(keychain->read("session")), std::optional<QString>("from-file"));
        QVERIFY(Sync::run(keychain->remove("session")));
        QCOMPARE(Sync::run(file().read("session")), std::nullopt);
    }

    void theKeychainCopyReplacesTheFileOne()
    {
        QVERIFY(Sync::run(file().write("session", "old")));
        QVERIFY(Sync::run(keychain->write("session", "new")));
        QCOMPARE(Sync::run(file().read("session")), std::nullopt);
        QCOMPARE(Sync::run(keychain->read("session")), std::optional<QString>("new"));
        QVERIFY(Sync::run(keychain->remove("session")));
        QCOMPARE(Sync::run(keychain->read("session")), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(KeychainTest)
#include "keychaintest.moc"
