#pragma once

#include <array>
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
        const double w = 2 * M_PI * frequency / rate;
        auto basis = [w](size_t i) {
            return std::array<double, 3>{std::sin(w * double(i)), std::cos(w * double(i)), 1};
        };
        // Normal equations of [sin, cos, 1], solved by Gauss-Jordan elimination.
        double m[3][4] = {};
        for (size_t i = 0; i < n; ++i) {
            const auto b = basis(i);
            for (int r = 0; r < 3; ++r) {
                for (int c = 0; c < 3; ++c) {
                    m[r][c] += b[r] * b[c];
                }
                m[r][3] += b[r] * x[i];
            }
        }
        for (int p = 0; p < 3; ++p) {
            for (int r = 0; r < 3; ++r) {
                const double f = r == p ? 0 : m[r][p] / m[p][p];
                for (int c = p; c < 4; ++c) {
                    m[r][c] -= f * m[p][c];
                }
            }
        }
        const double k[3] = {m[0][3] / m[0][0], m[1][3] / m[1][1], m[2][3] / m[2][2]};
        double residual = 0;
        for (size_t i = 0; i < n; ++i) {
            const auto b = basis(i);
            const double e = x[i] - (k[0] * b[0] + k[1] * b[1] + k[2]);
            residual += e * e;
        }
        return {std::hypot(k[0], k[1]), std::sqrt(residual / double(n))};
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
