#pragma once

#include <chrono>

namespace ChatBackoff {

// The wait before reconnecting after the n-th socket failure in a row (n ≥ 1):
// 1.6^min(n, 8) seconds, never more than 20 s.
std::chrono::milliseconds delay(int failures);

} // namespace ChatBackoff
