#include "chat/transfer/uploadmeter.h"

#include "platform/monotonic.h"
#include "platform/sleeper.h"

#include <QCoroTask>
#include <QPointer>

using namespace std::chrono_literals;

namespace {

constexpr double spacing = 0.2;
constexpr auto owedDelay = 300ms;

QCoro::Task<> later(Sleeper *sleeper, std::chrono::milliseconds delay, std::function<void()> fire)
{
    co_await sleeper->sleep(delay);
    fire();
}

} // namespace

UploadMeter::UploadMeter(Sleeper &sleeper, Clock now, QObject *parent)
    : QObject(parent)
    , m_sleeper(&sleeper)
    , m_now(now ? std::move(now) : Clock(Monotonic::seconds))
{
}

UploadMeter::~UploadMeter() = default;

QString UploadMeter::format(qint64 sent, qint64 total)
{
    if (total <= 0)
        return {};
    const qint64 percent = qBound<qint64>(0, sent, total) * 100 / total;
    return QString::number(percent) + u'%';
}

void UploadMeter::report(const QString &key, qint64 sent, qint64 total)
{
    if (total < smallest)
        return;
    const double now = m_now();
    Reading &reading = m_readings[key];
    if (sent != reading.sent)
        reading.moved = now;
    reading.sent = sent;
    reading.total = total;
    reading.text = format(sent, total);
    if (reading.owed)
        return; // the owed publication will carry the newest text
    if (reading.shown < 0 || now - reading.shown >= spacing) {
        publish(key, reading);
        return;
    }
    const quint64 ticket = reading.owed = ++m_schedule;
    QPointer<UploadMeter> self = this;
    later(m_sleeper, owedDelay, [self, key, ticket] {
        if (!self)
            return;
        const auto it = self->m_readings.find(key);
        // A clear(), or a clear and a new upload of the same key, cancels this one.
        if (it == self->m_readings.end() || it->owed != ticket)
            return;
        it->owed = 0;
        self->publish(key, *it);
    });
}

void UploadMeter::publish(const QString &key, Reading &reading)
{
    if (reading.text == reading.published)
        return;
    reading.shown = m_now();
    reading.published = reading.text;
    emit changed(key, reading.text);
}

bool UploadMeter::moving(const QString &key, double withinSeconds) const
{
    const auto it = m_readings.constFind(key);
    return it != m_readings.cend() && m_now() - it->moved <= withinSeconds;
}

void UploadMeter::clear(const QString &key)
{
    const auto it = m_readings.find(key);
    if (it == m_readings.end())
        return;
    const bool shown = !it->published.isEmpty();
    m_readings.erase(it);
    if (shown)
        emit changed(key, QString());
}

QString UploadMeter::text(const QString &key) const
{
    return m_readings.value(key).text;
}
