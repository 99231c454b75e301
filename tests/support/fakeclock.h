#pragma once

#include "platform/clock.h"

// A clock that moves only when the test moves it.
class FakeClock : public Clock
{
public:
    explicit FakeClock(QDateTime start = QDateTime(QDate(2026, 1, 15), QTime(12, 0), Qt::UTC))
        : m_now(std::move(start))
    {
    }
    QDateTime now() const override { return m_now; }
    double uptime() const override { return m_uptime; }

    void advance(double seconds)
    {
        m_uptime += seconds;
        m_now = m_now.addMSecs(qint64(seconds * 1000));
    }
    void setNow(QDateTime now) { m_now = std::move(now); }

private:
    QDateTime m_now;
    double m_uptime = 1000;
};
