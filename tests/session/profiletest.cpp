// The profile's rules and the shapes it is read from.

#include "net/jsonrecord.h"
#include "session/profile.h"

#include <QJsonArray>
#include <QTest>

class ProfileTest : public QObject
{
    Q_OBJECT

private slots:
    void may_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("role");
        QTest::addColumn<bool>("voiceLive");
        QTest::addColumn<QString>("key");
        QTest::addColumn<bool>("allowed");
        QTest::newRow("listed page") << "demo" << "user" << false << "projects" << true;
        QTest::newRow("unlisted page") << "demo" << "user" << false << "admin" << false;
        QTest::newRow("voice follows voiceLive") << "demo" << "user" << true << "voice" << true;
        QTest::newRow("voice off") << "demo" << "user" << false << "voice" << false;
        QTest::newRow("voice is not a page key") << "demo" << "user" << false << "voice" << false;
        QTest::newRow("owner role may voice") << "demo" << "owner" << false << "voice" << true;
        QTest::newRow("owner role may anything") << "demo" << "owner" << false << "admin" << true;
        QTest::newRow("user named owner") << "owner" << "user" << false << "admin" << true;
    }

    void may()
    {
        QFETCH(QString, user);
        QFETCH(QString, role);
        QFETCH(bool, voiceLive);
        QFETCH(QString, key);
        Profile p;
        p.user = user;
        p.role = role;
        p.voiceLive = voiceLive;
        p.pages = {QStringLiteral("projects"), QStringLiteral("chat")};
        if (QByteArray(QTest::currentDataTag()) == "voice is not a page key")
            p.pages.insert(QStringLiteral("voice"));
        QTEST(p.may(key), "allowed");
    }

    void label_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("label");
        QTest::newRow("named") << "dana" << "dana";
        QTest::newRow("generated") << "tt_7f3a" << "guest@example.com";
        QTest::newRow("tt inside") << "att_x" << "att_x";
    }

    void label()
    {
        QFETCH(QString, user);
        Profile p;
        p.user = user;
        p.email = QStringLiteral("guest@example.com");
        QTEST(p.label(), "label");
    }

    void meIsLenient()
    {
        const Me bare = Me::fromJson(QJsonObject{{"authenticated", true}, {"user", "dana"}});
        QVERIFY(bare.authenticated);
        QCOMPARE(bare.profile.role, QStringLiteral("user"));
        QVERIFY(bare.profile.pages.isEmpty());
        QCOMPARE(bare.profile.workspace, QString());

        const Me full = Me::fromJson(QJsonObject{{"authenticated", true},
                                                 {"user", "dana"},
                                                 {"role", "owner"},
                                                 {"email", "x@example.com"},
                                                 {"pages", QJsonArray{"a", "b"}},
                                                 {"voice_live", true},
                                                 {"workspace", QJsonObject{{"id", "ws-1"}}}});
        QCOMPARE(full.profile.pages, (QSet<QString>{"a", "b"}));
        QVERIFY(full.profile.voiceLive);
        QCOMPARE(full.profile.workspace, QStringLiteral("ws-1"));
        QVERIFY(!Me::fromJson(QJsonObject{}).authenticated);

        // The copy kept for starting offline reads back whole.
        OfflineProfile copy{QStringLiteral("abc"), full.profile, {}};
        copy.profile.prefs = {{QStringLiteral("lang"), QStringLiteral("he")}};
        const OfflineProfile back = OfflineProfile::fromJson(copy.toJson());
        QCOMPARE(back.sessionHash, copy.sessionHash);
        QVERIFY(back.profile == copy.profile);
        QVERIFY(copy.toJson().contains(u"voiceLive"));
    }

    void wrongTypesNameTheKey_data()
    {
        QTest::addColumn<QJsonValue>("reply");
        QTest::addColumn<QString>("key");
        QTest::newRow("user as number") << QJsonValue(QJsonObject{{"user", 5}}) << "user";
        QTest::newRow("page as number") << QJsonValue(QJsonObject{{"pages", QJsonArray{"a", 1}}})
                                        << "pages[1]";
        QTest::newRow("pages as text") << QJsonValue(QJsonObject{{"pages", "a"}}) << "pages";
        QTest::newRow("workspace id") << QJsonValue(QJsonObject{{"workspace", QJsonObject{{"id", 3}}}})
                                      << "workspace.id";
        QTest::newRow("not an object") << QJsonValue(QJsonArray{}) << "";
    }

    void wrongTypesNameTheKey()
    {
        QFETCH(QJsonValue, reply);
        try {
            Me::fromJson(reply);
            QFAIL("expected a decoding error");
        } catch (const DecodeError &error) {
            QTEST(error.key, "key");
            QVERIFY(!error.description().isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(ProfileTest)
#include "profiletest.moc"
