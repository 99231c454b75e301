#include "debouncer.h"

#include "sleeper.h"

#include <QCoroTask>

namespace {

QCoro::Task<> later(Sleeper *sleeper, std::chrono::milliseconds delay, std::function<void()> fire)
{
    co_await sleeper->sleep(delay);
    fire();
}

} // namespace

Debouncer::Debouncer(QObject *owner, std::chrono::milliseconds delay, std::function<void()> action,
                     Sleeper *sleeper)
    : m_owner(owner)
    , m_delay(delay)
    , m_action(std::move(action))
    , m_sleeper(sleeper)
{
    Q_ASSERT(sleeper);
}

void Debouncer::schedule()
{
    m_pending = true;
    const int generation = ++m_generation;
    QPointer<QObject> owner = m_owner;
    later(m_sleeper, m_delay, [this, owner, generation] {
        // The owner holds this debouncer: while it lives, `this` does.
        if (!owner || generation != m_generation || !m_pending)
            return;
        m_pending = false;
        m_action();
    });
}

void Debouncer::flush()
{
    if (!m_pending)
        return;
    m_pending = false;
    ++m_generation;
    m_action();
}
