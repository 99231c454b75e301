#include "coachengine.h"

void CoachEngine::start()
{
    if (m_active)
        return;
    m_active = true;
    emit activeChanged();
}

void CoachEngine::close()
{
    ++m_closes;
    if (!m_active)
        return;
    m_active = false;
    emit activeChanged();
}
