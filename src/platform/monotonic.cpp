#include "monotonic.h"

#include <chrono>

namespace Monotonic {

double seconds()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

} // namespace Monotonic
