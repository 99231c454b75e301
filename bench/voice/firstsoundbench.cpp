// Time to first sound of a reply whose speech is still being made: from its first part
// landing on disk to the output being told to play it, and from the server releasing that
// part to playing (the player asks again once a second while the speech is pending).

#include "chat/voice/voiceplayer.h"
#include "net/api.h"
#include "net/identity.h"
#include "platform/monotonic.h"
#include "platform/sleeper.h"
#include "platform/voiceoutput.h"
#include "support/testapi.h"
#include "support/service.h"
#include "support/sync.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTimer>

namespace {

class Bench : public Identity
{
public:
    QString value;
    QString cookie() const override { return value; }
    QString user() const override { return QStringLiteral("demo"); }
    void rejected() override {}
};

// Notes when it is told to play; plays nothing.
class Silent : public VoiceOutput
{
public:
    qint64 playedAt = -1;
    QElapsedTimer *clock = nullptr;
    void play(const QString &, double, double) override { playedAt = clock->nsecsElapsed(); }
    void pause() override {}
    void resume() override {}
    void stop() override {}
    void setRate(double) override {}
    double position() const override { return 0; }
};

struct World {
    TestApi api;
    QTemporaryDir home;
    std::unique_ptr<Service> service;
    Bench identity;

    World()
    {
        qputenv("HALVENMARK_HOME", home.path().toUtf8());
        service = std::make_unique<Service>();
        qputenv("HALVENMARK_SERVER", service->base().toString().toUtf8());
        api.get().setIdentity(&identity);
        identity.value =
            Sync::run(api.get().login(QStringLiteral("demo"), QStringLiteral("demo-password"))).cookie;
    }
};

// Runs the event loop until `done`, waking at least every 20 ms to look.
template <class F> void spin(F done)
{
    QTimer wake;
    wake.start(20);
    QElapsedTimer guard;
    guard.start();
    while (!done() && guard.elapsed() < 30'000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

void BM_FirstSound(benchmark::State &state)
{
    static World world;
    Service &service = *world.service;
    double landedToPlaying = 0;
    for (auto _ : state) {
        const qint64 seq =
            service
                .control(
                    "POST", QStringLiteral("message"),
                    {{"user", "demo"}, {"role", "assistant"}, {"text", "Hi"}, {"notify", false}})
                .value(u"seq")
                .toInteger();
        service.control(
            "POST", QStringLiteral("voice"),
            {{"user", "demo"}, {"seq", seq}, {"seconds", QJsonArray{1.0, 1.0}}, {"released", 0}});
        QElapsedTimer clock;
        clock.start();
        Silent output;
        output.clock = &clock;
        VoicePlayer::Dependencies deps;
        deps.output = &output;
        deps.sleeper = &Sleeper::real();
        deps.clock = Monotonic::seconds;
        deps.cache = world.home.path() + QStringLiteral("/voice");
        VoicePlayer player(world.api, deps);
        qint64 landedAt = -1;
        QObject::connect(&player, &VoicePlayer::partLanded, &player,
                         [&](int) { landedAt = landedAt < 0 ? clock.nsecsElapsed() : landedAt; });
        player.play(seq, ChatScope::main());
        spin([&] { return player.phase() == VoicePlayer::Phase::Loading; });
        const qint64 releasedAt = clock.nsecsElapsed();
        service.control("POST", QStringLiteral("voice/release"),
                        {{"user", "demo"}, {"seq", seq}, {"released", 1}});
        spin([&] { return output.playedAt >= 0; });
        if (output.playedAt < 0 || landedAt < 0) {
            state.SkipWithError("the first part never played");
            return;
        }
        state.SetIterationTime(double(output.playedAt - releasedAt) / 1e9);
        landedToPlaying += double(output.playedAt - landedAt) / 1e3;
        player.stop();
    }
    state.counters["landed_to_playing_us"] = landedToPlaying / double(state.iterations());
}
BENCHMARK(BM_FirstSound)->UseManualTime()->Iterations(8)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
