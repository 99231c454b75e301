#pragma once

#include <cmath>
#include <vector>

// One sine at a known frequency, fitted by correlation over whole periods (half a second holds
// whole periods of every tone measured here): its amplitude and what is left over. Used to
// measure converters: gain, distortion plus noise, aliases.
struct ToneFit {
    double amplitude = 0;
    double residualRms = 0;

    // THD+N in dB relative to the tone.
    double thdn() const { return 20 * std::log10(residualRms / (amplitude / std::sqrt(2.0))); }

    static ToneFit of(const float *x, size_t n, double frequency, double rate)
    {
        const double w = 2 * M_PI * frequency / rate;
        double s = 0;
        double c = 0;
        for (size_t i = 0; i < n; ++i) {
            s += 2 * x[i] * std::sin(w * double(i)) / double(n);
            c += 2 * x[i] * std::cos(w * double(i)) / double(n);
        }
        double residual = 0;
        for (size_t i = 0; i < n; ++i) {
            const double e = x[i] - s * std::sin(w * double(i)) - c * std::cos(w * double(i));
            residual += e * e;
        }
        return {std::hypot(s, c), std::sqrt(residual / double(n))};
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
