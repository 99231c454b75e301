#pragma once

#include "platform/sleeper.h"

#include <QList>
#include <QObject>

// Time that passes only when the test says so. Every sleep is recorded; advance() ends
// all sleeps under way at once.
class FakeSleeper : public QObject, public Sleeper
{
    Q_OBJECT

public:
    QCoro::Task<> sleep(std::chrono::milliseconds duration) override;

    // Durations asked for, in order.
    QList<std::chrono::milliseconds> requested;
    int waiting() const { return m_waiting; }
    void advance();

signals:
    void advanced();

private:
    int m_waiting = 0;
};
