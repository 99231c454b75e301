// The costs the transport and the text layer add per call: choosing a text (which reads the
// stored language each time) and a 64 KB upload over loopback to the reference service.

#include "net/api.h"
#include "net/identity.h"
#include "platform/appdata.h"
#include "support/testapi.h"
#include "support/service.h"
#include "support/sync.h"
#include "text/l.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QTemporaryDir>

namespace {

class Bench : public Identity
{
public:
    QString value;
    QString cookie() const override { return value; }
    QString user() const override { return QStringLiteral("demo"); }
    void rejected() override {}
};

struct World {
    TestApi api;
    QTemporaryDir home;
    std::unique_ptr<Service> service;
    Bench identity;

    World() { qputenv("HALVENMARK_HOME", home.path().toUtf8()); }

    void serve()
    {
        if (service)
            return;
        service = std::make_unique<Service>();
        qputenv("HALVENMARK_SERVER", service->base().toString().toUtf8());
        api.get().setIdentity(&identity);
        identity.value =
            Sync::run(api.get().login(QStringLiteral("demo"), QStringLiteral("demo-password"))).cookie;
    }
};

World &world()
{
    static World w;
    return w;
}

void BM_TextChoice(benchmark::State &state)
{
    world();
    L::set(QStringLiteral("ru"));
    const QString he = QStringLiteral("שלום"), en = QStringLiteral("Hello"),
                  ru = QStringLiteral("Привет");
    for (auto _ : state)
        benchmark::DoNotOptimize(L::t(he, en, ru));
}
BENCHMARK(BM_TextChoice);

void BM_Upload64K(benchmark::State &state)
{
    world().serve();
    Api::Upload upload{{QStringLiteral("file"), QStringLiteral("clip.bin"),
                        QStringLiteral("application/octet-stream"), QByteArray(64 * 1024, 'v')},
                       {}};
    for (auto _ : state)
        benchmark::DoNotOptimize(Sync::run(world().api.get().upload(QStringLiteral("webapi/upload"), upload)));
}
BENCHMARK(BM_Upload64K)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    world().service.reset();
    return 0;
}
