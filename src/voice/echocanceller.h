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
    // gainControl: the pre-processor's level control; off in calls, where it lifted
    // residual echo back over the barge-in gate.
    explicit EchoCanceller(int delayMs = 40, int tailMs = 300, bool gainControl = false);
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
    // The canceller has learned the echo path (it removed at least 12 dB of it for 0.2 s).
    bool converged() const { return m_converged; }
    // Recent echo reduction in dB while the speaker is active.
    double reductionDB() const;

private:
    SpeexEchoState_ *m_echo = nullptr;
    SpeexPreprocessState_ *m_pre = nullptr;
    int m_delaySamples = 0;
    int m_tailSamples = 0;
    std::deque<qint16> m_reference;
    void learn(const qint16 *near, qint16 *out);

    QByteArray m_pending;     // captured bytes short of a frame
    double m_farEnvelope = 0; // speaker energy, held over the echo tail
    double m_nearEnergy = 0;  // smoothed, while the speaker is active
    double m_outEnergy = 0;
    int m_convergedFrames = 0;
    bool m_converged = false;
    std::vector<qint16> m_far;
    std::vector<qint16> m_clean;
};
