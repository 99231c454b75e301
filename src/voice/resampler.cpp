#include "voice/resampler.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

constexpr double stopBandDB = 110;
constexpr int maxExactPhases = 640;
constexpr int interpolatedPhases = 512;

double kaiser(double x, double beta)
{
    if (x <= -1 || x >= 1) {
        return 0;
    }
    return std::cyl_bessel_i(0.0, beta * std::sqrt(1 - x * x)) / std::cyl_bessel_i(0.0, beta);
}

// Dot product of the filter row and the input window; the same loop in 8 lanes keeps the
// compiler free to vectorise without reassociating a single sum.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
__attribute__((target_clones("arch=x86-64-v3", "default")))
#endif
float dot(const float *a, const float *b, int n)
{
    float lanes[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < n; i += 8) {
        for (int l = 0; l < 8; ++l) {
            lanes[l] += a[i + l] * b[i + l];
        }
    }
    return ((lanes[0] + lanes[4]) + (lanes[1] + lanes[5])) +
           ((lanes[2] + lanes[6]) + (lanes[3] + lanes[7]));
}

inline void store(float value, float *out)
{
    *out = value;
}

inline void store(float value, qint16 *out)
{
    *out = qint16(std::clamp(std::lrint(value), -32768L, 32767L));
}

} // namespace

Resampler::Resampler(int inputRate, int outputRate)
    : m_inputRate(std::max(inputRate, 1000))
    , m_outputRate(std::max(outputRate, 1000))
{
    const double nyquist = std::min(m_inputRate, m_outputRate) / 2.0;
    const double transition = nyquist / 6;
    const double cutoff = (nyquist - transition / 2) / m_inputRate; // cycles per input sample
    const double width = 2 * M_PI * transition / m_inputRate;
    const int length = int(std::ceil((stopBandDB - 7.95) / (2.285 * width))) + 1;
    const double beta = 0.1102 * (stopBandDB - 8.7);
    m_taps = (length + 7) / 8 * 8;

    const qint64 g = std::gcd(qint64(m_inputRate), qint64(m_outputRate));
    m_up = m_outputRate / g;
    m_down = m_inputRate / g;
    m_exact = m_up <= maxExactPhases;
    const int rows = m_exact ? int(m_up) : interpolatedPhases + 1;
    m_phases = rows;
    m_step = (quint64(m_inputRate) << 32) / quint64(m_outputRate);

    // Row p serves an output at fraction f past its base sample; tap j weighs input
    // base - taps/2 + 1 + j, at distance f + taps/2 - 1 - j.
    const double half = m_taps / 2.0;
    m_table.assign(size_t(rows) * m_taps, 0.0f);
    for (int p = 0; p < rows; ++p) {
        const double f = m_exact ? double(p) / double(m_up) : double(p) / interpolatedPhases;
        double sum = 0;
        std::vector<double> row(m_taps);
        for (int j = 0; j < m_taps; ++j) {
            const double t = f + half - 1 - j;
            const double x = 2 * cutoff * t;
            const double sinc = x == 0 ? 1.0 : std::sin(M_PI * x) / (M_PI * x);
            row[j] = 2 * cutoff * sinc * kaiser(t / half, beta);
            sum += row[j];
        }
        // Each phase passes DC at exactly unity: no ripple at the phase rate.
        for (int j = 0; j < m_taps; ++j) {
            m_table[size_t(p) * m_taps + j] = float(row[j] / sum);
        }
    }
    reset();
}

void Resampler::reset()
{
    m_history.assign(size_t(m_taps / 2 - 1), 0.0f);
    m_history.reserve(size_t(m_taps) + 8192);
    m_next = m_taps / 2 - 1;
    m_phase = 0;
}

double Resampler::latencySeconds() const
{
    return double(m_taps / 2) / m_inputRate;
}

qsizetype Resampler::maxOutput(qsizetype count) const
{
    return (count + qsizetype(m_history.size())) * m_outputRate / m_inputRate + 2;
}

template <typename Out> qsizetype Resampler::run(const float *in, qsizetype count, Out *out)
{
    m_history.insert(m_history.end(), in, in + count);
    const qsizetype available = qsizetype(m_history.size());
    const int half = m_taps / 2;
    const float *data = m_history.data();
    qsizetype written = 0;
    while (m_next + half < available) {
        const float *window = data + m_next - half + 1;
        if (m_exact) {
            store(dot(m_table.data() + size_t(m_phase) * m_taps, window, m_taps), out + written);
            m_phase += m_down;
            m_next += m_phase / m_up;
            m_phase %= m_up;
        } else {
            const quint64 scaled = quint64(m_phase) * interpolatedPhases;
            const int row = int(scaled >> 32);
            const float a = float(scaled & 0xffffffffu) / 4294967296.0f;
            const float *r0 = m_table.data() + size_t(row) * m_taps;
            const float y0 = dot(r0, window, m_taps);
            const float y1 = dot(r0 + m_taps, window, m_taps);
            store(y0 + a * (y1 - y0), out + written);
            const quint64 position = quint64(m_phase) + m_step;
            m_next += qsizetype(position >> 32);
            m_phase = qint64(position & 0xffffffffu);
        }
        ++written;
    }
    // Keep only what the next outputs still need.
    const qsizetype drop = std::min(m_next - half + 1, available);
    if (drop > 0) {
        m_history.erase(m_history.begin(), m_history.begin() + drop);
        m_next -= drop;
    }
    return written;
}

qsizetype Resampler::process(const float *in, qsizetype count, float *out)
{
    return run(in, count, out);
}

qsizetype Resampler::process(const float *in, qsizetype count, qint16 *out)
{
    return run(in, count, out);
}

QByteArray Resampler::toPcm16(const float *in, qsizetype count)
{
    QByteArray bytes(maxOutput(count) * 2, Qt::Uninitialized);
    const qsizetype n = process(in, count, reinterpret_cast<qint16 *>(bytes.data()));
    bytes.truncate(n * 2);
    return bytes;
}
