// `chat log` of 20,000 messages against printing the same bytes, into a pseudo-terminal whose
// other end is read as fast as it fills (a terminal that draws nothing). "Before" is the way
// the log was printed first: language, time zone and terminal asked per line, a flush per
// message.

#include "chatlog.h"

#include "chat/model/chatjson.h"
#include "chat/markup/ansiwriter.h"
#include "text/l.h"

#include <benchmark/benchmark.h>

#include <QDateTime>

#include <cstdio>
#include <pty.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QList<ChatMessage> conversation()
{
    static const QList<ChatMessage> messages = [] {
        const QStringList asked = {u"When is the bus?"_s, u"מתי האוטובוס הבא לתל אביב?"_s,
                                   u"Summarise the report I sent yesterday, please."_s};
        const QStringList answered = {
            u"The next bus leaves at **07:35** from the main stop."_s,
            u"שלום! מצאתי את זמני האוטובוס: קו 12 ב־07:05 וקו 40 ב־07:35."_s,
            u"Three points stand out:\n- costs are down 4%\n- the new site opens in May\n- see the [report](https://example.com/r)"_s};
        QList<ChatMessage> out;
        double at = 1'700'000'000;
        for (int i = 0; i < 20'000; ++i) {
            const bool agent = i % 2 == 1;
            ChatMessage m = ChatMessage::make(agent ? u"assistant"_s : u"user"_s,
                                              (agent ? answered : asked).at((i / 2) % 3), at);
            m.seq = i + 1;
            if (agent)
                m.taskNo = QString::number(i / 2 + 1);
            out.append(m);
            at += 37;
        }
        return out;
    }();
    return messages;
}

// A pseudo-terminal read dry by a thread; writes go to the FILE* out.
struct Terminal {
    int master = -1;
    int slave = -1;
    FILE *out = nullptr;
    std::thread reader;

    Terminal()
    {
        winsize size{};
        size.ws_col = 100;
        size.ws_row = 40;
        openpty(&master, &slave, nullptr, nullptr, &size);
        out = fdopen(slave, "w");
        reader = std::thread([fd = master] {
            char buffer[65536];
            while (::read(fd, buffer, sizeof buffer) > 0) {
            }
        });
    }
    ~Terminal()
    {
        std::fclose(out);
        reader.join();
        ::close(master);
    }
};

void before(const QList<ChatMessage> &messages, FILE *out, int fd)
{
    for (const ChatMessage &m : messages) {
        const QString who = m.role == u"assistant" ? L::t(u"הסוכן"_s, u"Agent"_s, u"Агент"_s)
                                                   : L::t(u"את/ה"_s, u"You"_s, u"Вы"_s);
        const QString when = QDateTime::fromMSecsSinceEpoch(ChatJson::millisOf(m.createdAt))
                                 .toString(u"yyyy-MM-dd HH:mm"_s);
        QString line = u"["_s + when + u"] "_s + who + u": "_s;
        if (m.role == u"assistant") {
            winsize size{};
            ioctl(fd, TIOCGWINSZ, &size);
            const bool colour = isatty(fd) && qEnvironmentVariable("NO_COLOR").isEmpty();
            line += Markup::AnsiWriter::render(m.text, size.ws_col, colour);
        } else {
            line += m.text;
        }
        const QByteArray bytes = line.toUtf8() + '\n';
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), out);
        std::fflush(out);
    }
}

Markup::AnsiWriter::Options terminalOptions()
{
    return {100, true, true, true};
}

void BM_PrintBytes(benchmark::State &state)
{
    const QByteArray bytes =
        ChatLog::text(ChatLog::chosen(MessageList(conversation()), {}, {}), ChatLog::facts(terminalOptions()));
    Terminal terminal;
    for (auto _ : state) {
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), terminal.out);
        std::fflush(terminal.out);
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
}
BENCHMARK(BM_PrintBytes)->Unit(benchmark::kMillisecond);

void BM_LogBefore(benchmark::State &state)
{
    const QList<ChatMessage> messages = conversation();
    Terminal terminal;
    for (auto _ : state)
        before(messages, terminal.out, terminal.slave);
}
BENCHMARK(BM_LogBefore)->Unit(benchmark::kMillisecond);

void BM_Log(benchmark::State &state)
{
    const MessageList messages(conversation());
    Terminal terminal;
    for (auto _ : state)
        ChatLog::print(ChatLog::chosen(messages, {}, {}), ChatLog::facts(terminalOptions()),
                       terminal.out);
}
BENCHMARK(BM_Log)->Unit(benchmark::kMillisecond);

// The log's text alone, nothing printed.
void BM_LogFormatOnly(benchmark::State &state)
{
    const MessageList messages(conversation());
    for (auto _ : state)
        benchmark::DoNotOptimize(
            ChatLog::text(ChatLog::chosen(messages, {}, {}), ChatLog::facts(terminalOptions())));
}
BENCHMARK(BM_LogFormatOnly)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
