#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <deque>
#include <vector>

struct SpeexEchoState_;
struct SpeexPreprocessState_;

// Voice processing of the capture path: an adaptive echo canceller with a noise and level
// pre-processor (speexdsp), on 24 kHz 16-bit mono in 10 ms frames. Its reference is what was
// handed to the speaker, held back by the speaker's latency so that it meets its own echo.
class EchoCanceller
{
public:
    static constexpr int rate = 24000;
    static constexpr int frameSamples = 240; // 10 ms

    // tailMs: the longest echo path it models; delayMs: the sink's latency.
    explicit EchoCanceller(int delayMs = 40, int tailMs = 300, bool gainControl = true);
    ~EchoCanceller();
    EchoCanceller(const EchoCanceller &) = delete;
    EchoCanceller &operator=(const EchoCanceller &) = delete;

    // What the speaker was just given (16-bit samples).
    void render(const qint16 *samples, qsizetype count);
    void render(const QByteArray &pcm);
    // Cleans captured audio; returns as many bytes as whole 10 ms frames are ready (the
    // rest waits for the next call).
    QByteArray capture(const QByteArray &pcm);

    // The sink's latency changed: realigns the reference.
    void setDelay(int delayMs);
    int delayMs() const { return m_delaySamples * 1000 / rate; }
    // Forgets the learned echo path and the held audio.
    void reset();

private:
    SpeexEchoState_ *m_echo = nullptr;
    SpeexPreprocessState_ *m_pre = nullptr;
    int m_delaySamples = 0;
    int m_tailSamples = 0;
    std::deque<qint16> m_reference;
    QByteArray m_pending; // captured bytes short of a frame
    std::vector<qint16> m_far;
    std::vector<qint16> m_clean;
};
