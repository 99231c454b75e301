#pragma once

#include <QList>

// Where a moment of a voice lies when the voice comes in parts of known lengths.
namespace VoiceParts {

struct Place {
    int index = 0;      // the part holding the moment
    double offset = 0;  // seconds into that part
};

// Within this much of a part's end, a moment belongs to the start of the next part: a seek
// that lands on the last frames of a part would only play a click.
inline constexpr double edge = 0.05;

// The place of `at` seconds among parts of the given lengths. Before the start: the first
// part's start; past the end: the end of the last part. No parts: index 0, offset at.
Place locate(const QList<double> &seconds, double at);

// Seconds before the start of part index.
double before(const QList<double> &seconds, int index);

double total(const QList<double> &seconds);

} // namespace VoiceParts
