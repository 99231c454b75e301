#include "fakesleeper.h"

#include <QCoroSignal>

QCoro::Task<> FakeSleeper::sleep(std::chrono::milliseconds duration)
{
    requested.append(duration);
    ++m_waiting;
    co_await qCoro(this, &FakeSleeper::advanced);
}

void FakeSleeper::advance()
{
    m_waiting = 0;
    emit advanced();
}
