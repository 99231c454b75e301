#pragma once

#include <cmath>
#include <vector>

// Least-squares fit of one sine (and DC) at a known frequency: its amplitude and what is
// left over. Used to measure converters: gain, distortion plus noise, aliases.
struct ToneFit {
    double amplitude = 0;
    double residualRms = 0;

    // THD+N in dB relative to the tone.
    double thdn() const { return 20 * std::log10(residualRms / (amplitude / std::sqrt(2.0))); }

    static ToneFit of(const float *x, size_t n, double frequency, double rate)
    {
        // Normal equations of [sin, cos, 1].
        double a[3][3] = {};
        double b[3] = {};
        const double w = 2 * M_PI * frequency / rate;
        for (size_t i = 0; i < n; ++i) {
            const double basis[3] = {std::sin(w * double(i)), std::cos(w * double(i)), 1};
            for (int r = 0; r < 3; ++r) {
                b[r] += basis[r] * x[i];
                for (int c = 0; c < 3; ++c) {
                    a[r][c] += basis[r] * basis[c];
                }
            }
        }
        // Gaussian elimination on the 3x3 system.
        for (int p = 0; p < 3; ++p) {
            for (int r = p + 1; r < 3; ++r) {
                const double f = a[r][p] / a[p][p];
                for (int c = p; c < 3; ++c) {
                    a[r][c] -= f * a[p][c];
                }
                b[r] -= f * b[p];
            }
        }
        double k[3];
        for (int r = 2; r >= 0; --r) {
            double s = b[r];
            for (int c = r + 1; c < 3; ++c) {
                s -= a[r][c] * k[c];
            }
            k[r] = s / a[r][r];
        }
        ToneFit fit;
        fit.amplitude = std::hypot(k[0], k[1]);
        double residual = 0;
        for (size_t i = 0; i < n; ++i) {
            const double e =
                x[i] - (k[0] * std::sin(w * double(i)) + k[1] * std::cos(w * double(i)) + k[2]);
            residual += e * e;
        }
        fit.residualRms = std::sqrt(residual / double(n));
        return fit;
    }
};

inline std::vector<float> tone(double frequency, double rate, double amplitude, size_t n)
{
    std::vector<float> x(n);
    for (size_t i = 0; i < n; ++i) {
        x[i] = float(amplitude * std::sin(2 * M_PI * frequency * double(i) / rate));
    }
    return x;
}
