#pragma once

#include "platform/sleeper.h"

#include <QList>
#include <QObject>

#include <coroutine>
#include <vector>

// Time that passes only when the test says so. Every sleep is recorded; advance() ends
// all sleeps under way at once (they resume from the event loop). Sleeps still under way when
// the sleeper goes end then, so no task stays suspended past the test.
class FakeSleeper : public QObject, public Sleeper
{
    Q_OBJECT

public:
    ~FakeSleeper() override;
    QCoro::Task<> sleep(std::chrono::milliseconds duration) override;

    // Durations asked for, in order.
    QList<std::chrono::milliseconds> requested;
    int waiting() const { return int(m_sleeping.size()); }
    void advance();

signals:
    void advanced();

private:
    struct Parked;
    void resumeDue();

    std::vector<std::coroutine_handle<>> m_sleeping;
    std::vector<std::coroutine_handle<>> m_due;
};
