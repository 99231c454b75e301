#include "patience.h"

#include <algorithm>
#include <cmath>

std::optional<std::chrono::milliseconds> Patience::next(double sinceFirst)
{
    if (sinceFirst >= window)
        return std::nullopt;
    const double wait = m_wait;
    m_wait = std::min(m_wait * growth, longest);
    return std::chrono::milliseconds(std::llround(wait * 1000));
}
