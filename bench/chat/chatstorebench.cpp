// The chat store with a long conversation: opening it from disk, absorbing a large feed,
// and a burst of streamed "delta" frames on the main thread.

#include "chat/store/chatstore.h"
#include "chat/store/transcript.h"
#include "net/api.h"
#include "net/jsonrecord.h"
#include "net/networkmanager.h"
#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "platform/clock.h"
#include "platform/reachability.h"
#include "platform/sleeper.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <sys/resource.h>

namespace {

class Always : public Reachability
{
public:
    bool available() const override { return true; }
};

// Agent-style messages: mixed languages, a few hundred characters, every kind of key.
ChatMessage sample(qint64 seq)
{
    const bool user = seq % 2 == 1;
    ChatMessage m = ChatMessage::make(
        user ? QStringLiteral("user") : QStringLiteral("assistant"),
        user ? QStringLiteral("מתי יוצא האוטובוס הבא לתל אביב? Check /usr/local/bin too, #%1").arg(seq)
             : QStringLiteral("**Ответ** %1: the next bus leaves at 07:35.\n| a | b |\n|---|---|\n| 1 | קו 12 |\n"
                              "See [docs](https://example.com/docs).")
                   .arg(seq),
        1'700'000'000.0 + double(seq));
    m.seq = seq;
    m.runID = QStringLiteral("run_%1").arg((seq + 1) / 2);
    if (user)
        m.clientRequestID = QStringLiteral("turn-%1").arg(seq);
    else
        m.taskNo = QString::number(seq / 2);
    return m;
}

QJsonArray feedMessages(qint64 from, qint64 count)
{
    QJsonArray out;
    for (qint64 seq = from; seq < from + count; ++seq)
        out.append(sample(seq).toJson());
    return out;
}

struct Home {
    QTemporaryDir dir;
    Home() { qputenv("HALVENMARK_HOME", dir.path().toUtf8()); }
};

Api &benchApi()
{
    // The stores here work on their transcripts; the transport only has to exist.
    static Api api(Network::create(QCoreApplication::instance()), ServerAddress::configured());
    return api;
}

std::unique_ptr<ChatStore> newStore(Reachability *net)
{
    return std::make_unique<ChatStore>(ChatScope::main(), QStringLiteral("bench"), QStringLiteral("user"),
                                       ChatPorts{benchApi(), Sleeper::real(), *net, Clock::system()});
}

QByteArray writeTranscript(qint64 count)
{
    Transcript::Contents contents;
    for (qint64 seq = 1; seq <= count; ++seq)
        contents.messages.append(std::make_shared<const ChatMessage>(sample(seq)));
    contents.cachedSeq = count;
    const QByteArray bytes = Transcript::encode(contents);
    AtomicFile::write(QDir(Transcript::folder()).filePath(Transcript::fileName(QStringLiteral("bench"), false)), bytes);
    return bytes;
}

void openStoredConversation(benchmark::State &state)
{
    Home home;
    Always net;
    const QByteArray bytes = writeTranscript(state.range(0));
    for (auto _ : state) {
        auto store = newStore(&net);
        store->hydrate(); // read, decode, order, rows
        benchmark::DoNotOptimize(store->builtRows().size());
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["file_MB"] = double(bytes.size()) / 1e6;
    state.counters["peak_rss_MB"] = double(usage.ru_maxrss) / 1024.0;
}

// The yardstick: the same file through QJsonDocument alone.
void parseTranscriptOnly(benchmark::State &state)
{
    Home home;
    const QByteArray bytes = writeTranscript(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(QJsonDocument::fromJson(bytes).object().size());
}

void absorbIntoLongConversation(benchmark::State &state)
{
    Home home;
    Always net;
    const qint64 held = state.range(0);
    const MessagesFeed history = MessagesFeed::fromJson(
        QJsonObject{{"ok", true}, {"conversation_id", "main"}, {"messages", feedMessages(1, held)}});
    const MessagesFeed fresh = MessagesFeed::fromJson(
        QJsonObject{{"ok", true}, {"conversation_id", "main"}, {"messages", feedMessages(held + 1, 1000)}});
    qint64 writeNs = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto store = newStore(&net);
        store->absorb(history, true);
        store->flushDisk();
        state.ResumeTiming();
        store->absorb(fresh, false);
        state.PauseTiming();
        // The transcript write runs on the disk thread after the absorb; timed on its own.
        QElapsedTimer write;
        write.start();
        store->flushDisk();
        writeNs += write.nsecsElapsed();
        store.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * 1000);
    state.counters["transcript_write_ms"] = double(writeNs) / 1e6 / double(state.iterations());
}

// A run starting under the newest turn of a long conversation: one new lane row.
void runStartedFrame(benchmark::State &state)
{
    Home home;
    Always net;
    auto store = newStore(&net);
    store->absorb(MessagesFeed::fromJson(QJsonObject{
                      {"ok", true}, {"conversation_id", "main"}, {"messages", feedMessages(1, state.range(0))}}),
                  true);
    int run = 0;
    for (auto _ : state) {
        const ChatFrame frame = ChatFrame::fromJson(
            QJsonObject{{"type", "run_started"}, {"run_id", QStringLiteral("live_%1").arg(++run)},
                        {"user_seq", double(state.range(0) - 1)}});
        store->handle(frame);
    }
    store->flushDisk();
}

// 2,000 frames, as one second of fast streaming would bring them.
void deltaFrames(benchmark::State &state)
{
    Home home;
    Always net;
    auto store = newStore(&net);
    store->absorb(MessagesFeed::fromJson(QJsonObject{
                      {"ok", true}, {"conversation_id", "main"}, {"messages", feedMessages(1, state.range(0))}}),
                  true);
    store->handle(ChatFrame::fromJson(QJsonObject{{"type", "run_started"}, {"run_id", "run_live"},
                                                  {"user_seq", double(state.range(0) - 1)}}));
    qint64 longestNs = 0;
    QString text;
    for (auto _ : state) {
        for (int i = 0; i < 2000; ++i) {
            text += QStringLiteral("word ");
            const ChatFrame frame = ChatFrame::fromJson(
                QJsonObject{{"type", "delta"}, {"run_id", "run_live"}, {"label", "Researcher"}, {"text", text}});
            QElapsedTimer timer;
            timer.start();
            store->handle(frame);
            longestNs = std::max(longestNs, timer.nsecsElapsed());
        }
        text.clear();
    }
    store->flushDisk();
    state.counters["longest_handle_us"] = double(longestNs) / 1000.0;
    state.SetItemsProcessed(state.iterations() * 2000);
}

// A fresh device opening a long conversation: 100 pages of 200 fetched one after the other,
// each decoded and absorbed, and the transcript on disk at the end (its writes counted).
QList<QByteArray> pages(int count, int size)
{
    QList<QByteArray> out;
    for (int p = 0; p < count; ++p) {
        const qint64 from = qint64(p) * size + 1;
        out.append(QJsonDocument(QJsonObject{{"ok", true},
                                             {"conversation_id", "main"},
                                             {"messages", feedMessages(from, size)},
                                             {"cursor", double(from + size - 1)},
                                             {"has_more", p + 1 < count}})
                       .toJson(QJsonDocument::Compact));
    }
    return out;
}

void firstLoad(benchmark::State &state)
{
    Home home;
    Always net;
    const QList<QByteArray> bodies = pages(int(state.range(0)), 200);
    for (auto _ : state) {
        auto store = newStore(&net);
        for (const QByteArray &body : bodies) {
            const MessagesFeed feed = Decode::from<MessagesFeed>(body);
            store->absorb(feed, store->messages().isEmpty());
        }
        store->flushDisk();
        benchmark::DoNotOptimize(store->builtRows().size());
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_rss_MB"] = double(usage.ru_maxrss) / 1024.0;
}

// The yardstick: the same pages decoded into one list, nothing else.
void firstLoadPlain(benchmark::State &state)
{
    const QList<QByteArray> bodies = pages(int(state.range(0)), 200);
    for (auto _ : state) {
        QList<ChatMessage> all;
        for (const QByteArray &body : bodies)
            all.append(Decode::from<MessagesFeed>(body).messages);
        benchmark::DoNotOptimize(all.size());
    }
}

} // namespace

BENCHMARK(firstLoadPlain)->Arg(100)->Unit(benchmark::kMillisecond);
BENCHMARK(firstLoad)->Arg(100)->Unit(benchmark::kMillisecond);
BENCHMARK(openStoredConversation)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(parseTranscriptOnly)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(absorbIntoLongConversation)->Arg(5000)->Arg(20000)->Arg(80000)->Unit(benchmark::kMillisecond);
BENCHMARK(runStartedFrame)->Arg(80000)->Iterations(50)->Unit(benchmark::kMicrosecond);
BENCHMARK(deltaFrames)->Arg(20000)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
