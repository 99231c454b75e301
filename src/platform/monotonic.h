#pragma once

// The machine's monotonic clock in seconds: never steps back, and stands still while the
// machine sleeps. The default clock of everything that measures time spans.
namespace Monotonic {

double seconds();

} // namespace Monotonic
