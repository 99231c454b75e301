#pragma once

#include "chat/store/chatstore.h"
#include "chat/store/chatstores.h"
#include "support/fakeclock.h"
#include "support/fakereachability.h"
#include "support/fakesleeper.h"
#include "support/service.h"
#include "support/testhome.h"
#include "support/testidentity.h"

#include <QCoroTask>
#include <QJsonArray>
#include <QTest>

#include <memory>

// The chat stores of the signed-in "demo" user against the reference service, on fake time
// and a fake network watcher. A test class derives from it beside QObject.
struct ChatHarness {
    std::unique_ptr<TestHome> home;
    Service service;
    TestIdentity identity{service};
    FakeSleeper sleeper;
    FakeReachability reachability;
    FakeClock clock;
    ChatStores chats{ChatPorts{identity.api(), sleeper, reachability, clock}};

    // A new home and a reset service with the agent set so, "demo" signed in.
    void freshStart(const QJsonObject &agent)
    {
        home.reset(); // the old home ends first, so the new one stays in force
        home = std::make_unique<TestHome>();
        service.reset();
        service.control("POST", QStringLiteral("agent"), agent);
        identity.signIn();
    }

    // The demo user's store of a conversation, its outbox read as the app does at start-up.
    std::unique_ptr<ChatStore> newStore(const ChatScope &scope = ChatScope::main())
    {
        auto store = chats.make(scope, QStringLiteral("demo"), QStringLiteral("user"));
        store->prepare();
        return store;
    }

    QJsonArray stored(const QString &conversation = QStringLiteral("main"))
    {
        return service.messages(conversation);
    }

    // Lets fake time pass until the condition holds (each round ends every sleep under way).
    template<class F>
    bool passTimeUntil(F done, int rounds = 40)
    {
        for (int i = 0; i < rounds && !done(); ++i) {
            sleeper.advance();
            QTest::qWait(30);
        }
        return done();
    }

    // Runs a drain to its end, letting fake time pass for its pauses.
    ChatStore::DrainSummary drain(ChatStore &store)
    {
        auto task = store.drain();
        bool done = false;
        ChatStore::DrainSummary summary;
        auto wait = [&]() -> QCoro::Task<> {
            summary = co_await task;
            done = true;
        };
        auto running = wait();
        for (int i = 0; i < 400 && !done; ++i) {
            sleeper.advance();
            QTest::qWait(10);
        }
        return summary;
    }
};
