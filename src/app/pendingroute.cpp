#include "pendingroute.h"

void PendingRoute::hold(const PushRoute &route)
{
    m_route = route;
    emit changed();
}

std::optional<PushRoute> PendingRoute::take()
{
    std::optional<PushRoute> route = std::exchange(m_route, std::nullopt);
    if (route)
        emit changed();
    return route;
}
