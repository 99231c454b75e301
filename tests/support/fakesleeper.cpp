#include "fakesleeper.h"

#include <QMetaObject>

struct FakeSleeper::Parked
{
    FakeSleeper *sleeper;
    bool await_ready() const { return false; }
    void await_suspend(std::coroutine_handle<> waiting) { sleeper->m_sleeping.push_back(waiting); }
    void await_resume() const {}
};

FakeSleeper::~FakeSleeper()
{
    auto all = std::exchange(m_due, {});
    for (auto handle : std::exchange(m_sleeping, {}))
        all.push_back(handle);
    for (auto handle : all)
        handle.resume();
}

QCoro::Task<> FakeSleeper::sleep(std::chrono::milliseconds duration)
{
    requested.append(duration);
    co_await Parked{this};
}

void FakeSleeper::advance()
{
    for (auto handle : std::exchange(m_sleeping, {}))
        m_due.push_back(handle);
    emit advanced();
    QMetaObject::invokeMethod(this, &FakeSleeper::resumeDue, Qt::QueuedConnection);
}

void FakeSleeper::resumeDue()
{
    for (auto handle : std::exchange(m_due, {}))
        handle.resume();
}
