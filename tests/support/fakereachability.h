#pragma once

#include "platform/reachability.h"

// A network path the test switches on and off.
class FakeReachability : public Reachability
{
    Q_OBJECT

public:
    using Reachability::Reachability;

    bool available() const override { return m_available; }
    void set(bool available)
    {
        if (m_available == available)
            return;
        m_available = available;
        emit availableChanged(available);
    }

private:
    bool m_available = true;
};
