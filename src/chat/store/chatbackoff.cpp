#include "chat/store/chatbackoff.h"

#include <algorithm>
#include <cmath>

namespace ChatBackoff {

std::chrono::milliseconds delay(int failures)
{
    const double seconds = std::min(std::pow(1.6, std::clamp(failures, 0, 8)), 20.0);
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

} // namespace ChatBackoff
