#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <vector>

// Streaming band-limited rate converter to the call's 24 kHz (any whole input rate).
// A Kaiser-windowed sinc, one filter per output phase; the transition band sits between
// 10 and 12 kHz (or the last sixth below the lower Nyquist), stop band 110 dB down.
// Output lags input by half the filter, under 2 ms at 44.1 and 48 kHz.
class Resampler
{
public:
    explicit Resampler(int inputRate, int outputRate = 24000);

    int inputRate() const { return m_inputRate; }
    int outputRate() const { return m_outputRate; }
    int taps() const { return m_taps; }
    // How far output lags input, in seconds.
    double latencySeconds() const;
    // The most samples the next process() of count inputs can write.
    qsizetype maxOutput(qsizetype count) const;

    // Converts count samples; returns how many were written to out (at most maxOutput).
    // Float output keeps the input's scale; 16-bit output rounds and clips.
    qsizetype process(const float *in, qsizetype count, float *out);
    qsizetype process(const float *in, qsizetype count, qint16 *out);
    // Convenience for the capture path: 16-bit little-endian bytes.
    QByteArray toPcm16(const float *in, qsizetype count);

    // Forgets the history (a new stream).
    void reset();

private:
    template <typename Out> qsizetype run(const float *in, qsizetype count, Out *out);

    int m_inputRate;
    int m_outputRate;
    int m_taps = 0;      // per phase, padded to a multiple of 8
    int m_phases = 0;    // table rows (one more than used, for interpolation)
    bool m_exact = true; // one row per output phase; else interpolated between rows
    qint64 m_up = 1;     // output steps per input step, reduced (exact mode)
    qint64 m_down = 1;
    std::vector<float> m_table;   // m_phases × m_taps
    std::vector<float> m_history; // pending input, oldest first
    qsizetype m_next = 0;         // input index of the next output's base sample
    qint64 m_phase = 0;           // exact: numerator over m_up; interpolated: 32-bit fraction
    quint64 m_step = 0;           // interpolated: input step per output in 32.32 fixed point
};
