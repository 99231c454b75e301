#include "chat/model/pendingturn.h"

namespace {

constexpr double movingWindow = 15.0; // seconds

} // namespace

bool PendingTurn::moving(double now) const
{
    return lastProgress && now - *lastProgress <= movingWindow;
}
