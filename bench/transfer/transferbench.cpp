// What the background route costs over a plain send: an answer read back from its receipt,
// and an upload that goes to disk first and out from the file, against the same upload sent
// from memory (direct), over loopback to the reference service.

#include "chat/transfer/chatbackgroundtransfer.h"
#include "net/api.h"
#include "net/identity.h"
#include "platform/sleeper.h"
#include "support/testapi.h"
#include "support/service.h"
#include "support/sync.h"

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
    Service service;
    Bench identity;
    std::unique_ptr<ChatBackgroundTransfer> transfer;

    World()
    {
        qputenv("HALVENMARK_HOME", home.path().toUtf8());
        qputenv("HALVENMARK_SERVER", service.base().toString().toUtf8());
        api.get().setIdentity(&identity);
        identity.value =
            Sync::run(api.get().login(QStringLiteral("demo"), QStringLiteral("demo-password"))).cookie;
        transfer = std::make_unique<ChatBackgroundTransfer>(api, Sleeper::real());
    }
};

World &world()
{
    static World w;
    return w;
}

Api::Request uploadRequest(qint64 size, const QString &id)
{
    const QString boundary = Multipart::newBoundary();
    Api::Request request = world().api.get().authorized(QStringLiteral("webapi/upload"), "POST");
    request.request.setHeader(QNetworkRequest::ContentTypeHeader, Multipart::contentType(boundary));
    request.request.setTransferTimeout(120'000);
    request.body = Multipart::body(boundary, {{QStringLiteral("client_request_id"), id}},
                                   {QStringLiteral("file"), QStringLiteral("clip.m4a"),
                                    QStringLiteral("audio/mp4"), QByteArray(size, 'v')});
    return request;
}

void BM_AnswerFromReceipt(benchmark::State &state)
{
    World &w = world();
    const QString key = QStringLiteral("bench:upload:kept-%1").arg(state.range(0));
    w.transfer->keep(key, 200, QByteArray(state.range(0), 'r'));
    const Api::Request request = uploadRequest(1, QStringLiteral("unused"));
    for (auto _ : state) {
        const Api::Reply reply = Sync::run(w.transfer->perform(request, key));
        benchmark::DoNotOptimize(reply.data.size());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_AnswerFromReceipt)->Arg(1 << 10)->Arg(256 << 10)->Arg(4 << 20)
    ->Unit(benchmark::kMicrosecond);

// range(0): bytes of the file; range(1): 1 background (through the body file), 0 direct.
void BM_Upload(benchmark::State &state)
{
    World &w = world();
    const bool background = state.range(1) == 1;
    int n = 0;
    for (auto _ : state) {
        const QString id = QStringLiteral("%1-%2-%3")
                               .arg(background ? u"bg" : u"direct")
                               .arg(state.range(0))
                               .arg(++n);
        const QString key = ChatBackgroundTransfer::key(QStringLiteral("bench"),
                                                        QStringLiteral("upload"), id);
        const Api::Request request = uploadRequest(state.range(0), id);
        const Api::Reply reply = Sync::run(background ? w.transfer->perform(request, key)
                                                      : w.transfer->direct(key, request),
                                           120'000);
        if (reply.status != 200)
            state.SkipWithError("the upload failed");
        state.PauseTiming();
        w.transfer->acknowledged({key});
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Upload)
    ->ArgsProduct({{64 << 10, 4 << 20, 32 << 20}, {1, 0}})
    ->ArgNames({"bytes", "background"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    if (!world().service.running()) {
        std::fprintf(stderr, "transfer_bench: the reference service did not start\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    world().transfer.reset();
    return 0;
}
