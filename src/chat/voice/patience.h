#pragma once

#include <chrono>
#include <optional>

// How long to wait before asking again for something the server is still making: 1 s at
// first, growing by half each time to at most 6 s, and no more asking once 1200 s have
// passed since the first try.
class Patience
{
public:
    // The wait before the next try, given the seconds since the first one; nothing when
    // patience has run out.
    std::optional<std::chrono::milliseconds> next(double sinceFirst);

    static constexpr double first = 1.0;
    static constexpr double growth = 1.5;
    static constexpr double longest = 6.0;
    static constexpr double window = 1200.0;

private:
    double m_wait = first;
};
