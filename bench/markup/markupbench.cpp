// The markup renderer on about 1 MB of agent-style replies, to the neutral model and to rich
// text, beside cmark-gfm rendering the same bytes to HTML; and the hostile inputs, whose time
// must grow in proportion to their length.

#include "corpus.h"

#include "chat/markup/ansiwriter.h"
#include "chat/markup/htmlwriter.h"
#include "chat/markup/markup.h"

#include <benchmark/benchmark.h>

#ifdef HALVENMARK_CMARK_GFM
#include <cmark-gfm-core-extensions.h>
#include <cmark-gfm.h>
#endif

#include <cstdio>
#include <map>
#include <string>

namespace {

const QList<QByteArray> &corpus()
{
    static const QList<QByteArray> replies = Corpus::replies(1 << 20);
    return replies;
}

qint64 corpusBytes()
{
    qint64 total = 0;
    for (const QByteArray &r : corpus())
        total += r.size();
    return total;
}

void modelOnly(benchmark::State &state)
{
    for (auto _ : state) {
        for (const QByteArray &reply : corpus())
            benchmark::DoNotOptimize(Markup::blocks(QString::fromUtf8(reply)));
    }
    state.SetBytesProcessed(state.iterations() * corpusBytes());
}
BENCHMARK(modelOnly)->Unit(benchmark::kMillisecond);

void html(benchmark::State &state)
{
    for (auto _ : state) {
        for (const QByteArray &reply : corpus())
            benchmark::DoNotOptimize(Markup::HtmlWriter::render(QString::fromUtf8(reply)));
    }
    state.SetBytesProcessed(state.iterations() * corpusBytes());
}
BENCHMARK(html)->Unit(benchmark::kMillisecond);

void ansi(benchmark::State &state)
{
    for (auto _ : state) {
        for (const QByteArray &reply : corpus())
            benchmark::DoNotOptimize(
                Markup::AnsiWriter::render(QString::fromUtf8(reply), 100, true));
    }
    state.SetBytesProcessed(state.iterations() * corpusBytes());
}
BENCHMARK(ansi)->Unit(benchmark::kMillisecond);

#ifdef HALVENMARK_CMARK_GFM
void cmarkGfm(benchmark::State &state)
{
    cmark_gfm_core_extensions_ensure_registered();
    const char *names[] = {"table", "strikethrough", "autolink", "tagfilter"};
    for (auto _ : state) {
        for (const QByteArray &reply : corpus()) {
            cmark_parser *parser = cmark_parser_new(CMARK_OPT_DEFAULT);
            for (const char *name : names)
                cmark_parser_attach_syntax_extension(parser, cmark_find_syntax_extension(name));
            cmark_parser_feed(parser, reply.constData(), size_t(reply.size()));
            cmark_node *doc = cmark_parser_finish(parser);
            char *out = cmark_render_html(doc, CMARK_OPT_DEFAULT,
                                          cmark_parser_get_syntax_extensions(parser));
            benchmark::DoNotOptimize(out);
            free(out);
            cmark_node_free(doc);
            cmark_parser_free(parser);
        }
    }
    state.SetBytesProcessed(state.iterations() * corpusBytes());
}
BENCHMARK(cmarkGfm)->Unit(benchmark::kMillisecond);
#endif

// Hostile messages of growing length n.
QString hostile(int kind, int n)
{
    const QString shalom = QStringLiteral("\u05E9\u05DC\u05D5\u05DD ");
    switch (kind) {
    case 0:
        return QString(n, u'[') + QStringLiteral("](http://x y)");
    case 1:
        return QStringLiteral("<a ").repeated(n) + u'>';
    case 2:
        return QStringLiteral("<b>").repeated(n) + u'x' + QStringLiteral("</b>").repeated(n);
    case 3:
        return QStringLiteral("**") + QStringLiteral("a*").repeated(n);
    case 4:
        return shalom.repeated(n + 1) + QStringLiteral("word ").repeated(n);
    default:
        return QStringLiteral("<a href=\"x ").repeated(n);
    }
}

void hostileInput(benchmark::State &state)
{
    const QString text = hostile(int(state.range(0)), int(state.range(1)));
    for (auto _ : state)
        benchmark::DoNotOptimize(Markup::HtmlWriter::render(text));
    // Characters per second: flat across n when the work is linear.
    state.SetItemsProcessed(state.iterations() * text.size());
}
BENCHMARK(hostileInput)
    ->ArgNames({"kind", "n"})
    ->ArgsProduct({{0, 1, 2, 3, 4, 5}, {4096, 16384, 65536}})
    ->Unit(benchmark::kMillisecond);

// Keeps the throughput of each run to report the ratio to cmark-gfm at the end.
class Reporter : public benchmark::ConsoleReporter
{
public:
    std::map<std::string, double> throughput;

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            const auto it = run.counters.find("bytes_per_second");
            if (it == run.counters.end())
                continue;
            if (run.run_type == Run::RT_Iteration)
                throughput[run.run_name.function_name] = it->second.value;
            else if (run.aggregate_name == "mean")
                throughput[run.run_name.function_name] = it->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    Reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\ncorpus: %d replies, %lld bytes\n", int(corpus().size()),
                static_cast<long long>(corpusBytes()));
    const auto yardstick = reporter.throughput.find("cmarkGfm");
    for (const char *name : {"modelOnly", "html", "ansi"}) {
        const auto it = reporter.throughput.find(name);
        if (it == reporter.throughput.end())
            continue;
        std::printf("%-10s %8.1f MB/s", name, it->second / 1e6); // 10^6 bytes
        if (yardstick != reporter.throughput.end())
            std::printf("   cmark-gfm is %.2fx as fast", yardstick->second / it->second);
        std::printf("\n");
    }
    if (yardstick != reporter.throughput.end())
        std::printf("%-10s %8.1f MB/s\n", "cmark-gfm", yardstick->second / 1e6);
    benchmark::Shutdown();
    return 0;
}
