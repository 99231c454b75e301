// The page cache on disk: what is kept, where, and for whom.

#include "net/api.h"
#include "net/projectcache.h"
#include "support/testapi.h"
#include "support/testhome.h"

#include <QCryptographicHash>
#include <QDir>
#include <QTest>

class ProjectCacheTest : public QObject
{
    Q_OBJECT

    TestApi api;

    TestHome home;

private slots:
    void initTestCase() { qputenv("HALVENMARK_SERVER", "https://example.test"); }

    void keeps_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("kept");
        QTest::newRow("plain page") << "webapi/projects" << true;
        QTest::newRow("first page") << "webapi/tasks?offset=0" << true;
        QTest::newRow("empty paging value") << "webapi/tasks?since=" << true;
        QTest::newRow("later page") << "webapi/tasks?offset=50" << false;
        QTest::newRow("time range") << "webapi/tasks?since=123" << false;
        QTest::newRow("before") << "webapi/tasks?before=9" << false;
        QTest::newRow("activity_since") << "webapi/tasks?activity_since=2" << false;
        QTest::newRow("other query items") << "webapi/plugins?lang=he&offset=0" << true;
        QTest::newRow("chat history") << "webapi/messages" << false;
        QTest::newRow("me") << "webapi/me" << false;
        QTest::newRow("prefs") << "webapi/prefs" << false;
        QTest::newRow("me is exact") << "webapi/me/devices" << true;
        QTest::newRow("codex login") << "webapi/codex-accounts/login/abc" << false;
        QTest::newRow("codex accounts") << "webapi/codex-accounts" << true;
        QTest::newRow("memory search") << "webapi/memory/search" << false;
        QTest::newRow("not the api") << "static/x" << false;
        QTest::newRow("query decides after the path only") << "webapi/me?x=1" << false;
    }

    void keeps()
    {
        QFETCH(QString, path);
        QFETCH(bool, kept);
        QCOMPARE(ProjectCache::keeps(path), kept);
        QCOMPARE(ProjectCache::file(api.get().base().toString(), path, QStringLiteral("demo")).has_value(), kept);
    }

    void fileNames()
    {
        const QString expected = QString::fromLatin1(
            QCryptographicHash::hash("https://example.test/|demo|webapi/projects",
                                     QCryptographicHash::Sha256)
                .toHex());
        const auto file = ProjectCache::file(api.get().base().toString(), QStringLiteral("webapi/projects"), QStringLiteral("demo"));
        QVERIFY(file);
        QCOMPARE(QFileInfo(*file).fileName(), expected);
        QCOMPARE(QFileInfo(*file).absolutePath(),
                 QDir(home.path()).filePath(QStringLiteral("project-cache")));
        QVERIFY(!ProjectCache::file(api.get().base().toString(), QStringLiteral("webapi/projects"), QString()));
    }

    void usersAreSeparateAndClearEmptiesAll()
    {
        const QString page = QStringLiteral("webapi/projects");
        ProjectCache::write("alice's", api.get().base().toString(), page, QStringLiteral("alice"));
        ProjectCache::write("bob's", api.get().base().toString(), page, QStringLiteral("bob"));
        ProjectCache::remember(std::any(42), QStringLiteral("d"), api.get().base().toString(), page, QStringLiteral("alice"));
        QCOMPARE(ProjectCache::read(api.get().base().toString(), page, QStringLiteral("alice")).value_or(""), QByteArray("alice's"));
        QCOMPARE(ProjectCache::read(api.get().base().toString(), page, QStringLiteral("bob")).value_or(""), QByteArray("bob's"));
        QVERIFY(!ProjectCache::remembered(api.get().base().toString(), page, QStringLiteral("bob")));
        QCOMPARE(std::any_cast<int>(ProjectCache::remembered(api.get().base().toString(), page, QStringLiteral("alice"))->value), 42);

        ProjectCache::clear();
        QVERIFY(!ProjectCache::read(api.get().base().toString(), page, QStringLiteral("alice")));
        QVERIFY(!ProjectCache::read(api.get().base().toString(), page, QStringLiteral("bob")));
        QVERIFY(!ProjectCache::remembered(api.get().base().toString(), page, QStringLiteral("alice")));
    }

    void pagesNotKeptAreNeverWritten()
    {
        ProjectCache::write("x", api.get().base().toString(), QStringLiteral("webapi/tasks?offset=50"), QStringLiteral("demo"));
        ProjectCache::remember(std::any(1), {}, api.get().base().toString(), QStringLiteral("webapi/me"), QStringLiteral("demo"));
        QVERIFY(QDir(ProjectCache::directory()).isEmpty());
        QVERIFY(!ProjectCache::remembered(api.get().base().toString(), QStringLiteral("webapi/me"), QStringLiteral("demo")));
    }
};

QTEST_GUILESS_MAIN(ProjectCacheTest)
#include "projectcachetest.moc"
