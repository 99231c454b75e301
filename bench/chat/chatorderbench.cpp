// The store orders the transcript and rebuilds the rows on every absorb; long
// conversations reach tens of thousands of messages.

#include "chat/model/chatorder.h"

#include <benchmark/benchmark.h>

#include <QRandomGenerator>

#include <algorithm>
#include <random>

namespace {

// A transcript as it arrives: mostly in order, a few late or bridged messages, some
// seconds shared by several messages.
QList<ChatMessage> transcript(int count)
{
    QRandomGenerator random(7);
    QList<ChatMessage> out;
    out.reserve(count);
    for (int i = 0; i < count; ++i) {
        const double created = 1700000000.0 + i / 3 - (random.bounded(20) == 0 ? 30 : 0);
        ChatMessage m =
            ChatMessage::make(i % 2 ? QStringLiteral("assistant") : QStringLiteral("user"),
                              QStringLiteral("message %1").arg(i), created);
        m.seq = i + 1;
        if (random.bounded(4) == 0)
            m.tgMessageID = QString::number(random.bounded(100000));
        out.append(m);
    }
    return out;
}

// Twenty live lanes, every fifth not yet anchored.
QList<Lane> lanes(int messages)
{
    QList<Lane> out;
    for (int i = 0; i < 20; ++i) {
        Lane l;
        l.id = QStringLiteral("run_%1").arg(i);
        l.after = i % 5 == 0 ? 0 : qint64(messages - 2 * i);
        out.append(l);
    }
    return out;
}

void orderShuffled(benchmark::State &state)
{
    QList<ChatMessage> source = transcript(int(state.range(0)));
    std::shuffle(source.begin(), source.end(), std::mt19937(3));
    for (auto _ : state) {
        state.PauseTiming();
        QList<ChatMessage> messages = source;
        messages.detach();
        state.ResumeTiming();
        orderMessages(messages);
        benchmark::DoNotOptimize(messages.constData());
    }
}

// The common case: an absorb that changed nothing about the order.
void orderAlreadyOrdered(benchmark::State &state)
{
    QList<ChatMessage> messages = transcript(int(state.range(0)));
    orderMessages(messages);
    for (auto _ : state) {
        orderMessages(messages);
        benchmark::DoNotOptimize(messages.constData());
    }
}

void rows(benchmark::State &state)
{
    const int n = int(state.range(0));
    const QList<ChatMessage> messages = transcript(n);
    const QList<Lane> live = lanes(n);
    for (auto _ : state)
        benchmark::DoNotOptimize(buildRows(messages, live));
}

} // namespace

BENCHMARK(orderShuffled)->Arg(5000)->Arg(20000)->Arg(80000)->Unit(benchmark::kMillisecond);
BENCHMARK(orderAlreadyOrdered)->Arg(5000)->Arg(20000)->Arg(80000)->Unit(benchmark::kMillisecond);
BENCHMARK(rows)->Arg(5000)->Arg(20000)->Arg(80000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
