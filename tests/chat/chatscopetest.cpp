// Which conversation a key, a path, a request body or a frame belongs to.

#include "chat/chatscope.h"

#include <QTest>

Q_DECLARE_METATYPE(std::optional<int>)

class ChatScopeTest : public QObject
{
    Q_OBJECT

private slots:
    void derived_data()
    {
        QTest::addColumn<std::optional<int>>("project");
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("storageKey");
        QTest::addColumn<QString>("path");
        QTest::newRow("main keeps everything")
            << std::optional<int>() << "webapi/messages?since=5" << "webapi/messages?since=5"
            << "webapi/messages?since=5";
        QTest::newRow("project, path with a query")
            << std::optional<int>(7) << "webapi/messages?since=5"
            << "webapi/messages?since=5-project-7"
            << "webapi/messages?since=5&conversation_id=project:7&project_id=7";
        QTest::newRow("project, path without a query")
            << std::optional<int>(7) << "webapi/ws" << "webapi/ws-project-7"
            << "webapi/ws?conversation_id=project:7&project_id=7";
    }

    void derived()
    {
        QFETCH(std::optional<int>, project);
        QFETCH(QString, base);
        const ChatScope scope = project ? ChatScope::project(*project) : ChatScope::main();
        QCOMPARE(scope.isMain(), !project.has_value());
        QTEST(scope.storageKey(base), "storageKey");
        QTEST(scope.path(base), "path");
    }

    void fields()
    {
        QVERIFY(ChatScope::main().fields().isEmpty());
        const QJsonObject f = ChatScope::project(7).fields();
        QCOMPARE(f.size(), 2);
        QCOMPARE(f.value(u"conversation_id").toString(), QStringLiteral("project:7"));
        // The server reads project_id as a number: text would be a different request.
        QVERIFY(f.value(u"project_id").isDouble());
        QCOMPARE(f.value(u"project_id").toInt(), 7);
    }

    void conversationID_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<std::optional<int>>("project");
        QTest::newRow("main") << "main" << true << std::optional<int>();
        QTest::newRow("project") << "project:7" << true << std::optional<int>(7);
        QTest::newRow("beyond int") << "project:2147483648" << false << std::optional<int>();
        QTest::newRow("no number") << "project:" << false << std::optional<int>();
        QTest::newRow("signed") << "project:-3" << false << std::optional<int>();
        QTest::newRow("letters") << "project:7a" << false << std::optional<int>();
        QTest::newRow("empty") << "" << false << std::optional<int>();
    }

    void conversationID()
    {
        QFETCH(QString, id);
        QFETCH(bool, valid);
        QFETCH(std::optional<int>, project);
        const std::optional<ChatScope> scope = ChatScope::fromConversationID(id);
        QCOMPARE(scope.has_value(), valid);
        if (!valid)
            return;
        QCOMPARE(scope->projectID(), project);
        QCOMPARE(scope->conversationID(), id);
    }
};

QTEST_GUILESS_MAIN(ChatScopeTest)
#include "chatscopetest.moc"
