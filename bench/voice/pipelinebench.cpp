// Processing time of the call's two paths with the fake devices: a captured 20 ms chunk
// (48 kHz stereo) to its "audio" frame on the socket, and a received "audio" frame to the
// speaker's queue. Algorithmic delay (converter plus 10 ms canceller frames) is reported apart.
#include "fakecalllink.h"
#include "platform/fileaudioport.h"
#include "platform/clock.h"
#include "platform/sleeper.h"
#include "voice/call.h"
#include "voice/callaudio.h"
#include "voice/resampler.h"
#include "voice/voicetuning.h"

#include <QCoreApplication>
#include <benchmark/benchmark.h>

#include <cmath>

namespace {

WavFile speechLikeInput()
{
    WavFile wav;
    wav.sampleRate = 48000;
    wav.channels = 2;
    wav.samples.resize(48000 * 2 * 2 * 60);
    auto *s = reinterpret_cast<qint16 *>(wav.samples.data());
    for (int i = 0; i < 48000 * 60; ++i) {
        const double v = 6000 * std::sin(i * 0.05) * (0.5 + 0.5 * std::sin(i * 0.0003));
        s[2 * i] = qint16(v);
        s[2 * i + 1] = qint16(v / 2);
    }
    return wav;
}

void BM_CaptureToFrame(benchmark::State &state)
{
    FakeCallLink link;
    FileAudioPort port(speechLikeInput());
    VoiceTuning tuning;
    Call call(ChatScope::main(), &link, &port, Sleeper::real(), Clock::system(), tuning);
    call.start();
    link.serve(R"({"type":"ready"})");
    for (auto _ : state) {
        port.tick();
        if (link.sent.size() > 1000) {
            link.sent.clear();
        }
    }
    state.counters["algorithmic_ms"] =
        Resampler(48000).latencySeconds() * 1000 + 10; // plus at most one canceller frame
    call.hangUp();
}

void BM_FrameToSink(benchmark::State &state)
{
    FakeCallLink link;
    FileAudioPort port;
    VoiceTuning tuning;
    Call call(ChatScope::main(), &link, &port, Sleeper::real(), Clock::system(), tuning);
    call.start();
    link.serve(R"({"type":"ready","provider":"gemini"})");
    const QByteArray frame = R"({"type":"audio","data":")" + QByteArray(960, '\x11').toBase64()
        + R"("})";
    for (auto _ : state) {
        link.serve(frame);
        port.dropQueued();
    }
    call.hangUp();
}

} // namespace

BENCHMARK(BM_CaptureToFrame)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FrameToSink)->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
