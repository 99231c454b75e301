#pragma once

#include "chat/voice/voiceplayer.h"
#include "support/fakesleeper.h"
#include "support/fakevoiceoutput.h"
#include "support/service.h"

#include <QJsonObject>
#include <QTest>

#include <functional>

// A voice player's world on fake time, for a test class to derive from beside QObject: the
// output, the sleeper, a clock that moves only with the sleeps, and the service's script of
// the parts of one message's voice.
struct VoiceRig {
    FakeSleeper sleeper;
    FakeVoiceOutput output;
    qint64 seq = 0; // the message the script is for

    double fakeNow() const
    {
        double seconds = 0;
        for (const auto d : sleeper.requested)
            seconds += d.count() / 1000.0;
        return seconds;
    }

    // Lets the player's requests land, passing fake time whenever it waits.
    void settle(const std::function<bool()> &until)
    {
        for (int i = 0; i < 500 && !until(); ++i) {
            if (sleeper.waiting())
                sleeper.advance();
            QTest::qWait(5);
        }
    }

    VoicePlayer::Dependencies dependencies(const QString &cache)
    {
        return {&output, &sleeper, [this] { return fakeNow(); }, cache};
    }

    // A new message of the agent's for "demo", without a notification; its seq.
    static qint64 post(Service &service, const QString &text)
    {
        return post(service, QJsonObject{{"role", "assistant"}, {"text", text}});
    }

    // A message for "demo" with the fields given, without a notification; its seq.
    static qint64 post(Service &service, QJsonObject message)
    {
        message.insert("user", "demo");
        message.insert("notify", false);
        return service.control("POST", QStringLiteral("message"), message)
            .value(QStringLiteral("seq"))
            .toInteger();
    }

    // Parts to make ("seconds") or to release so far ("released", "done"), for seq unless the
    // body names another message.
    void script(Service &service, QJsonObject body) const
    {
        body.insert("user", "demo");
        if (!body.contains("seq"))
            body.insert("seq", seq);
        const bool making = body.contains("seconds");
        service.control("POST", making ? QStringLiteral("voice") : QStringLiteral("voice/release"),
                        body);
    }
};
