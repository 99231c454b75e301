// Sending one turn: the time from append to durable, and the bytes it writes, with an empty
// outbox and with 200 turns already waiting. The full rewrite of "state.json" on every change
// is timed beside it for comparison. Files go under OUTBOX_BENCH_DIR when set (a real disk:
// on a RAM disk fsync costs nothing), else the temporary folder.

#include "chat/outbox/chatoutbox.h"
#include "platform/atomicfile.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QJsonDocument>
#include <QTemporaryDir>

namespace {

struct Home {
    QTemporaryDir dir{qEnvironmentVariable("OUTBOX_BENCH_DIR", QDir::tempPath())
                      + QStringLiteral("/outbox-bench-XXXXXX")};
    Home() { qputenv("HALVENMARK_HOME", dir.path().toUtf8()); }
};

// A typical turn: a few sentences in mixed scripts, one photo, a location.
OutboxTurn sample(int n)
{
    OutboxTurn t;
    t.id = QStringLiteral("0b7f1c2e-6a4d-4f0e-9d2b-%1").arg(n, 12, 10, QLatin1Char('0'));
    t.text = QStringLiteral("Can you check the build on the office machine and send me the log? "
                            "תבדוק גם את הגיבוי של אתמול. И напомни про встречу в 15:00, #%1")
                 .arg(n);
    t.created = 1700000000.0 + n;
    t.afterSeq = 4000 + n;
    t.files = {{QStringLiteral("att-%1").arg(n), QStringLiteral("IMG_2041.jpg"),
                QStringLiteral("image/jpeg"), QStringLiteral("data-%1").arg(n)}};
    t.geo = QJsonObject{{QStringLiteral("lat"), 32.0853}, {QStringLiteral("lon"), 34.7818}};
    return t;
}

// Each iteration appends one turn (timed) and removes it again (not timed), so the queue
// stays at its size. The fixed iteration count spans several compactions.
void appendToDurable(benchmark::State &state)
{
    Home home;
    ChatOutbox outbox(QStringLiteral("bench"));
    outbox.load();
    const int queued = int(state.range(0));
    for (int i = 0; i < queued; ++i)
        outbox.append(sample(i));
    qint64 appendBytes = 0;
    const qint64 start = outbox.bytesWritten();
    int n = queued;
    for (auto _ : state) {
        const OutboxTurn turn = sample(n++);
        const qint64 before = outbox.bytesWritten();
        if (!outbox.append(turn))
            state.SkipWithError("append refused");
        appendBytes += outbox.bytesWritten() - before;
        state.PauseTiming();
        outbox.remove(turn.id);
        state.ResumeTiming();
    }
    state.counters["bytes_per_append"] =
        benchmark::Counter(double(appendBytes), benchmark::Counter::kAvgIterations);
    state.counters["bytes_per_send"] = benchmark::Counter(
        double(outbox.bytesWritten() - start), benchmark::Counter::kAvgIterations);
}

// The same change as one whole-state rewrite.
void rewriteWholeState(benchmark::State &state)
{
    Home home;
    const QString path = QDir(home.dir.path()).filePath(QStringLiteral("state.json"));
    OutboxState outbox;
    for (int i = 0; i < state.range(0); ++i)
        outbox.turns.append(sample(i));
    qint64 bytes = 0;
    int n = int(state.range(0));
    for (auto _ : state) {
        outbox.turns.append(sample(n++));
        const QByteArray text = QJsonDocument(outbox.toJson()).toJson(QJsonDocument::Compact);
        if (!AtomicFile::write(path, text))
            state.SkipWithError("write refused");
        bytes += text.size();
        outbox.turns.removeLast();
    }
    state.counters["bytes_per_append"] =
        benchmark::Counter(double(bytes), benchmark::Counter::kAvgIterations);
}

} // namespace

BENCHMARK(appendToDurable)->Arg(0)->Arg(200)->Iterations(800)->Unit(benchmark::kMillisecond);
BENCHMARK(rewriteWholeState)->Arg(0)->Arg(200)->Iterations(200)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
