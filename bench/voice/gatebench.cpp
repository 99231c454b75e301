// The barge-in gate on 20 ms chunks, with every heap allocation counted.
#include "voice/callbargegate.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long> allocations{0};
}

void *operator new(std::size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void *p = std::malloc(size ? size : 1)) {
        return p;
    }
    throw std::bad_alloc();
}

void operator delete(void *p) noexcept
{
    std::free(p);
}

void operator delete(void *p, std::size_t) noexcept
{
    std::free(p);
}

namespace {

QByteArray speechLike(double db)
{
    QByteArray bytes(960, Qt::Uninitialized);
    auto *s = reinterpret_cast<qint16 *>(bytes.data());
    const double amplitude = 32768 * std::pow(10, db / 20) * std::sqrt(2.0);
    for (int i = 0; i < 480; ++i) {
        s[i] = qint16(amplitude * std::sin(i * 0.37) * (0.6 + 0.4 * std::sin(i * 0.013)));
    }
    return bytes;
}

// mode 0: echo held back during playback; 1: the user has the floor; 2: nobody is playing.
void BM_GateChunk(benchmark::State &state)
{
    const int mode = int(state.range(0));
    CallBargeGate gate;
    gate.echoFloor = -40;
    const QByteArray pcm = speechLike(mode == 1 ? -20 : -45);
    if (mode == 1) {
        for (int i = 0; i < 10; ++i) {
            gate.process(pcm, true, i * 0.02);
        }
    }
    double now = 1;
    const long before = allocations.load();
    for (auto _ : state) {
        auto result = gate.process(pcm, mode != 2, now);
        benchmark::DoNotOptimize(result);
        now += 0.02;
    }
    state.counters["allocs_per_chunk"] =
        double(allocations.load() - before) / double(state.iterations());
    state.SetLabel(mode == 0 ? "echo held" : mode == 1 ? "user admitted" : "no playback");
}

} // namespace

BENCHMARK(BM_GateChunk)->Arg(0)->Arg(1)->Arg(2);
BENCHMARK_MAIN();
