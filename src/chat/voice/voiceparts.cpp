#include "voiceparts.h"

#include <algorithm>

namespace VoiceParts {

Place locate(const QList<double> &seconds, double at)
{
    if (seconds.isEmpty())
        return {0, std::max(0.0, at)};
    double start = 0;
    for (int i = 0; i < seconds.size(); ++i) {
        const double length = std::max(0.0, seconds.at(i));
        const bool last = i == seconds.size() - 1;
        if (at < start + length - edge || (last && at < start + length))
            return {i, std::max(0.0, at - start)};
        start += length;
    }
    return {int(seconds.size() - 1), std::max(0.0, seconds.constLast())};
}

double before(const QList<double> &seconds, int index)
{
    double sum = 0;
    for (int i = 0; i < std::min<int>(index, int(seconds.size())); ++i)
        sum += std::max(0.0, seconds.at(i));
    return sum;
}

double total(const QList<double> &seconds)
{
    return before(seconds, int(seconds.size()));
}

} // namespace VoiceParts
