#include "voice/pcm.h"

#include <algorithm>
#include <cmath>

namespace Pcm {

qint64 sumOfSquares(const qint16 *samples, qsizetype count)
{
    // 32-bit products summed in 64 bits: the loop vectorises to multiply-add pairs.
    qint64 sum = 0;
    for (qsizetype i = 0; i < count; ++i) {
        const qint32 s = samples[i];
        sum += s * s;
    }
    return sum;
}

int peak(const qint16 *samples, qsizetype count)
{
    int best = 0;
    for (qsizetype i = 0; i < count; ++i) {
        best = std::max(best, std::abs(int(samples[i])));
    }
    return best;
}

int loudestChannel(const qint16 *interleaved, qsizetype frames, int channels)
{
    int best = 0;
    int bestPeak = -1;
    for (int c = 0; c < channels; ++c) {
        int p = 0;
        for (qsizetype f = 0; f < frames; ++f) {
            p = std::max(p, std::abs(int(interleaved[f * channels + c])));
        }
        if (p > bestPeak) {
            bestPeak = p;
            best = c;
        }
    }
    return best;
}

int loudestChannel(const float *interleaved, qsizetype frames, int channels)
{
    int best = 0;
    float bestPeak = -1;
    for (int c = 0; c < channels; ++c) {
        float p = 0;
        for (qsizetype f = 0; f < frames; ++f) {
            p = std::max(p, std::fabs(interleaved[f * channels + c]));
        }
        if (p > bestPeak) {
            bestPeak = p;
            best = c;
        }
    }
    return best;
}

void channelToFloat(const qint16 *interleaved, qsizetype frames, int channels, int channel,
                    float *out)
{
    for (qsizetype f = 0; f < frames; ++f) {
        out[f] = float(interleaved[f * channels + channel]);
    }
}

void channelToFloat(const float *interleaved, qsizetype frames, int channels, int channel,
                    float *out)
{
    for (qsizetype f = 0; f < frames; ++f) {
        out[f] = interleaved[f * channels + channel] * 32768.0f;
    }
}

} // namespace Pcm
