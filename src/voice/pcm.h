#pragma once

#include <QtGlobal>

// Small sample loops of the capture path, kept apart so they compile to vector code.
namespace Pcm {

// Sum of squared 16-bit samples (exact).
qint64 sumOfSquares(const qint16 *samples, qsizetype count);

// The channel with the highest peak in an interleaved buffer of frames × channels.
int loudestChannel(const qint16 *interleaved, qsizetype frames, int channels);
int loudestChannel(const float *interleaved, qsizetype frames, int channels);

// One channel of an interleaved buffer as floats on the 16-bit scale (float input is ±1).
void channelToFloat(const qint16 *interleaved, qsizetype frames, int channels, int channel,
                    float *out);
void channelToFloat(const float *interleaved, qsizetype frames, int channels, int channel,
                    float *out);

// Highest magnitude of 16-bit samples.
int peak(const qint16 *samples, qsizetype count);

} // namespace Pcm
