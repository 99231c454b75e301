#include "features/vault/vaultclipboard.h"
#include "features/vault/vaultfailure.h"
#include "features/vault/vaultpassword.h"
#include "features/vault/vaultstore.h"
#include "platform/atomicfile.h"
#include "support/fakeclipboard.h"
#include "support/fakeowner.h"
#include "support/fakesleeper.h"
#include "support/testhome.h"
#include "support/testidentity.h"
#include "text/l.h"

#include <QDirIterator>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

#include <array>
#include <limits>

using namespace Qt::StringLiterals;

class VaultTest : public QObject
{
    Q_OBJECT

    TestHome home;
    Service service;
    TestIdentity identity{service};
    FakeSleeper sleeper;
    FakeOwner owner;
    FakeClipboard clipboard;

    // A new item through the service itself, as another device would have saved it.
    void seed()
    {
        VaultStore store(identity.api(), owner, nullptr, sleeper);
        const QMap<QString, QString> fields{{u"title"_s, u"Plan"_s}, {u"note"_s, u"text"_s}};
        Sync::run(store.save(std::nullopt, VaultKind::Note, fields, false));
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(service.running(), "the reference service did not start");
        L::pin(u"en"_s);
    }

    void init()
    {
        service.reset();
        identity.signIn();
        owner = FakeOwner();
        clipboard = FakeClipboard();
        sleeper.requested.clear();
    }

    void generatedPasswordsAreUniformOverTheAlphabet()
    {
        const QString alphabet = QString::fromUtf16(VaultPassword::alphabet);
        QCOMPARE(alphabet.size(), 69);
        for (const QChar confusable : u"IOl01"_s)
            QVERIFY(!alphabet.contains(confusable));
        constexpr int passwords = 100'000;
        std::array<qint64, 69> counts{};
        for (int i = 0; i < passwords; ++i) {
            const QString password = VaultStore::generate();
            QCOMPARE(password.size(), 20);
            for (const QChar c : password) {
                const qsizetype at = alphabet.indexOf(c);
                QVERIFY2(at >= 0, qPrintable(u"not in the alphabet: "_s + c));
                ++counts[size_t(at)];
            }
        }
        const double expected = passwords * 20.0 / 69.0;
        double chi2 = 0;
        for (const qint64 n : counts) {
            QVERIFY(n > 0);
            chi2 += (n - expected) * (n - expected) / expected;
        }
        // 68 degrees of freedom: a fair source exceeds 153 about once in 10^8 runs.
        QVERIFY2(chi2 < 153, qPrintable(u"chi-square %1"_s.arg(chi2)));
    }

    void drawsInTheUnevenTopAreRedrawn_data()
    {
        QTest::addColumn<quint64>("bound");
        QTest::addColumn<QList<quint64>>("draws");
        QTest::addColumn<quint64>("index");
        QTest::addColumn<int>("used");
        const quint64 top = std::numeric_limits<quint64>::max();
        // 2^64 = 69·q + 52: the 52 highest draws are thrown away.
        QTest::newRow("top draw rejected")
            << quint64(69) << QList<quint64>{top, 5} << quint64(5) << 2;
        QTest::newRow("lowest of the remainder rejected")
            << quint64(69) << QList<quint64>{top - 51, 70} << quint64(1) << 2;
        QTest::newRow("last fair draw kept")
            << quint64(69) << QList<quint64>{top - 52} << quint64(68) << 1;
        QTest::newRow("power of two has no remainder")
            << quint64(64) << QList<quint64>{top} << quint64(63) << 1;
    }

    void drawsInTheUnevenTopAreRedrawn()
    {
        QFETCH(quint64, bound);
        QFETCH(QList<quint64>, draws);
        QFETCH(quint64, index);
        QFETCH(int, used);
        int next = 0;
        const quint64 got = VaultPassword::uniform(bound, [&] { return draws.value(next++); });
        QCOMPARE(got, index);
        QCOMPARE(next, used);
    }

    void clipboardIsClearedAfterAMinuteOnlyWhileOurs_data()
    {
        QTest::addColumn<bool>("present");
        QTest::addColumn<QString>("copiedMeanwhile"); // "" = nothing else copied
        QTest::addColumn<bool>("cleared");
        QTest::newRow("still ours") << true << QString() << true;
        QTest::newRow("the person copied something else") << true << u"their own text"_s << false;
        QTest::newRow("no clipboard: no copy, no timer") << false << QString() << false;
    }

    void clipboardIsClearedAfterAMinuteOnlyWhileOurs()
    {
        QFETCH(bool, present);
        QFETCH(QString, copiedMeanwhile);
        QFETCH(bool, cleared);
        clipboard.present = present;
        VaultClipboard copier(clipboard, sleeper);
        QSignalSpy expired(&copier, &VaultClipboard::expired);
        QCOMPARE(copier.copy(u"s3cret"_s), present);
        QCOMPARE(sleeper.waiting(), int(present));
        if (!present)
            return;
        QVERIFY(clipboard.secretMark);
        QCOMPARE(sleeper.requested, QList<std::chrono::milliseconds>{std::chrono::seconds(60)});
        QCOMPARE(clipboard.content, u"s3cret"_s);
        if (!copiedMeanwhile.isEmpty())
            clipboard.content = copiedMeanwhile;
        sleeper.advance();
        QTRY_COMPARE(expired.size(), 1);
        QCOMPARE(expired.first().first().toBool(), cleared);
        QCOMPARE(clipboard.content, cleared ? QString() : copiedMeanwhile);
    }

    void unlock_data()
    {
        QTest::addColumn<bool>("active");
        QTest::addColumn<QString>("missing");
        QTest::addColumn<bool>("accept");
        QTest::addColumn<bool>("unlocked");
        QTest::addColumn<int>("asked");
        QTest::newRow("in front, accepted") << true << QString() << true << true << 1;
        QTest::newRow("in front, refused") << true << QString() << false << false << 1;
        QTest::newRow("no way to ask") << true << u"No account"_s << true << false << 0;
        QTest::newRow("in the background") << false << QString() << true << false << 0;
    }

    void unlock()
    {
        QFETCH(bool, active);
        QFETCH(QString, missing);
        QFETCH(bool, accept);
        QFETCH(bool, unlocked);
        QFETCH(int, asked);
        seed();
        owner.missing = missing;
        owner.accept = accept;
        VaultStore store(identity.api(), owner, &clipboard, sleeper);
        store.setActive(active);
        Sync::run(store.unlock());
        QCOMPARE(owner.asked, asked);
        QCOMPARE(store.unlocked(), unlocked);
        QCOMPARE(store.items().size(), unlocked ? 1 : 0);
        QCOMPARE(store.authError().isEmpty(), unlocked || !active);
    }

    // Locking forgets the items, also a list still on its way; coming back asks again.
    void lockingForgetsItems()
    {
        seed();
        VaultStore store(identity.api(), owner, &clipboard, sleeper);
        Sync::run(store.unlock());
        QCOMPARE(store.items().size(), 1);
        store.setActive(false);
        QVERIFY(!store.unlocked() && store.items().isEmpty());
        store.setActive(true);
        QVERIFY(!store.unlocked());
        Sync::run(store.unlock());
        service.fault({{u"match"_s, u"webapi/vault"_s}, {u"delay"_s, 0.3}});
        auto loading = store.load();
        store.lock();
        Sync::run(std::move(loading));
        QVERIFY(store.items().isEmpty());
    }

    void saveRevealAndRemove()
    {
        VaultStore store(identity.api(), owner, &clipboard, sleeper);
        Sync::run(store.unlock());
        const auto save = [&](const QString &title, const QString &key) {
            const QMap<QString, QString> fields{{u"title"_s, title}, {u"key"_s, key}};
            return Sync::run(store.save(std::nullopt, VaultKind::ApiKey, fields, true));
        };
        const VaultItem a = save(u"Work"_s, u"sk-1"_s), b = save(u"Home"_s, u"sk-2"_s);
        QCOMPARE(store.items().size(), 2);
        // One default per kind: the newer primary takes it from the older.
        for (const VaultItem &item : store.items())
            QCOMPARE(item.primary, item.id == b.id);

        service.clearLog();
        for (int i = 0; i < 2; ++i)
            QCOMPARE(Sync::run(store.reveal(a)), u"sk-1"_s);
        // Asked of the server each time, and nowhere in what the store holds.
        QCOMPARE(service.requests(u"webapi/vault/%1/reveal"_s.arg(a.id)).size(), 2);
        const QByteArray held = QJsonDocument::fromVariant(store.itemMaps()).toJson();
        QVERIFY(!held.contains("sk-1") && !held.contains("sk-2"));
        // Nor in any file of the app's (settings, page cache, outbox).
        QDirIterator files(home.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (files.hasNext())
            QVERIFY2(!AtomicFile::read(files.next()).value_or("").contains("sk-1"),
                     qPrintable(files.filePath()));

        const QMap<QString, QString> edit{{u"title"_s, u"Work 2"_s}};
        Sync::run(store.save(a, VaultKind::ApiKey, edit, false));
        QCOMPARE(Sync::run(store.reveal(a)), u"sk-1"_s); // secret kept
        Sync::run(store.remove(b.id));
        QCOMPARE(store.items().size(), 1);
        QCOMPARE(store.items().first().title, u"Work 2"_s);
    }

    void callFailureTexts_data()
    {
        QTest::addColumn<QJsonObject>("fault");
        QTest::addColumn<bool>("advanceClock");
        QTest::addColumn<QString>("failure");
        const QString unreachable = u"Cannot reach the server."_s;
        QTest::newRow("server error, its reason not shown")
            << QJsonObject{{u"status"_s, 500}, {u"body"_s, QJsonObject{{u"error"_s, u"boom"_s}}}}
            << false << u"HTTP 500"_s;
        QTest::newRow("connection dropped")
            << QJsonObject{{u"drop"_s, true}, {u"times"_s, 3}} << false << unreachable;
        QTest::newRow("no answer within the minute")
            << QJsonObject{{u"delay"_s, 20}} << true << unreachable;
    }

    void callFailureTexts()
    {
        QFETCH(QJsonObject, fault);
        QFETCH(bool, advanceClock);
        QFETCH(QString, failure);
        VaultStore store(identity.api(), owner, &clipboard, sleeper);
        Sync::run(store.unlock());
        sleeper.requested.clear();
        fault.insert(u"match"_s, u"webapi/vault"_s);
        service.fault(fault);
        bool done = false;
        auto body = [&]() -> QCoro::Task<> {
            co_await store.load();
            done = true;
        };
        auto loading = body();
        if (advanceClock) {
            QTRY_VERIFY(sleeper.waiting() > 0);
            sleeper.advance();
        }
        QTRY_VERIFY_WITH_TIMEOUT(done,
                                 10'000); // the 20 s delay: the minute passed on the fake clock
        QCOMPARE(store.failure(), failure);
        QCOMPARE(sleeper.requested.first(), std::chrono::milliseconds(std::chrono::seconds(60)));
        QVERIFY(store.items().isEmpty());
    }
};

QTEST_GUILESS_MAIN(VaultTest)
#include "vaulttest.moc"
