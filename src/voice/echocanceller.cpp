#include "voice/echocanceller.h"

#include <speex/speex_echo.h>
#include <speex/speex_preprocess.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// The speaker counts as active above about -50 dBFS.
constexpr double activeFar = 32768.0 * 32768.0 * 1e-5;
// Until the echo path is learned (the first second or two of the first reply) the canceller
// removes only a few dB: the agent would hear itself. Attenuating the microphone while the
// speaker is active bridges that time; once 12 dB of reduction held for 0.2 s it stops.
constexpr double learnedDB = 12;
constexpr int learnedFrames = 20;
constexpr float unlearnedGain = 0.1f; // -20 dB

double energy(const qint16 *s, int n)
{
    double sum = 0;
    for (int i = 0; i < n; ++i) {
        sum += double(s[i]) * s[i];
    }
    return sum / n;
}

} // namespace

EchoCanceller::EchoCanceller(int delayMs, int tailMs, bool gainControl)
    : m_tailSamples(tailMs * rate / 1000)
    , m_far(frameSamples)
    , m_clean(frameSamples)
{
    m_echo = speex_echo_state_init(frameSamples, m_tailSamples);
    int sampleRate = rate;
    speex_echo_ctl(m_echo, SPEEX_ECHO_SET_SAMPLING_RATE, &sampleRate);
    m_pre = speex_preprocess_state_init(frameSamples, rate);
    speex_preprocess_ctl(m_pre, SPEEX_PREPROCESS_SET_ECHO_STATE, m_echo);
    int on = 1;
    speex_preprocess_ctl(m_pre, SPEEX_PREPROCESS_SET_DENOISE, &on);
    int agc = gainControl ? 1 : 0;
    speex_preprocess_ctl(m_pre, SPEEX_PREPROCESS_SET_AGC, &agc);
    if (gainControl) {
        // A modest ceiling: residual echo must not be lifted back over the gate.
        int maxGain = 12;
        speex_preprocess_ctl(m_pre, SPEEX_PREPROCESS_SET_AGC_MAX_GAIN, &maxGain);
    }
    setDelay(delayMs);
}

EchoCanceller::~EchoCanceller()
{
    speex_preprocess_state_destroy(m_pre);
    speex_echo_state_destroy(m_echo);
}

void EchoCanceller::setDelay(int delayMs)
{
    m_delaySamples = std::max(delayMs, 0) * rate / 1000;
    m_reference.assign(size_t(m_delaySamples), 0);
}

void EchoCanceller::reset()
{
    speex_echo_state_reset(m_echo);
    m_pending.clear();
    m_farEnvelope = m_nearEnergy = m_outEnergy = 0;
    m_convergedFrames = 0;
    m_converged = false;
    m_reference.assign(size_t(m_delaySamples), 0);
}

void EchoCanceller::render(const qint16 *samples, qsizetype count)
{
    m_reference.insert(m_reference.end(), samples, samples + count);
    // A reference that runs far ahead of the microphone no longer meets its echo.
    const size_t limit = size_t(m_delaySamples + m_tailSamples);
    if (m_reference.size() > limit) {
        m_reference.erase(m_reference.begin(),
                          m_reference.begin() + qsizetype(m_reference.size() - limit));
    }
}

void EchoCanceller::render(const QByteArray &pcm)
{
    render(reinterpret_cast<const qint16 *>(pcm.constData()), pcm.size() / 2);
}

QByteArray EchoCanceller::capture(const QByteArray &pcm)
{
    m_pending.append(pcm);
    const qsizetype frameBytes = frameSamples * 2;
    const qsizetype frames = m_pending.size() / frameBytes;
    QByteArray out(frames * frameBytes, Qt::Uninitialized);
    for (qsizetype f = 0; f < frames; ++f) {
        const size_t take = std::min(m_reference.size(), size_t(frameSamples));
        std::copy_n(m_reference.begin(), take, m_far.begin());
        std::fill(m_far.begin() + qsizetype(take), m_far.end(), 0);
        m_reference.erase(m_reference.begin(), m_reference.begin() + qsizetype(take));

        const auto *near =
            reinterpret_cast<const spx_int16_t *>(m_pending.constData() + f * frameBytes);
        speex_echo_cancellation(m_echo, near, m_far.data(), m_clean.data());
        speex_preprocess_run(m_pre, m_clean.data());
        learn(near, m_clean.data());
        std::memcpy(out.data() + f * frameBytes, m_clean.data(), size_t(frameBytes));
    }
    m_pending.remove(0, frames * frameBytes);
    return out;
}

double EchoCanceller::reductionDB() const
{
    if (m_outEnergy <= 0 || m_nearEnergy <= 0) {
        return 0;
    }
    return 10 * std::log10(m_nearEnergy / m_outEnergy);
}

void EchoCanceller::learn(const qint16 *near, qint16 *out)
{
    // Held for the tail: echo keeps arriving after the speaker went quiet.
    const double decay = std::exp(-double(frameSamples) / std::max(m_tailSamples, 1));
    m_farEnvelope = std::max(energy(m_far.data(), frameSamples), m_farEnvelope * decay);
    if (m_converged || m_farEnvelope < activeFar) {
        return;
    }
    const double smoothing = 0.1;
    m_nearEnergy += smoothing * (energy(near, frameSamples) - m_nearEnergy);
    m_outEnergy += smoothing * (energy(out, frameSamples) + 1 - m_outEnergy);
    m_convergedFrames = reductionDB() >= learnedDB ? m_convergedFrames + 1 : 0;
    m_converged = m_convergedFrames >= learnedFrames;
    if (!m_converged) {
        for (int i = 0; i < frameSamples; ++i) {
            out[i] = qint16(std::lrint(out[i] * unlearnedGain));
        }
    }
}
