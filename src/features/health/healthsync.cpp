#include "healthsync.h"

#include "healthendpoints.h"

#include "healthrows.h"
#include "net/api.h"
#include "net/failuretext.h"
#include "platform/appdata.h"
#include "platform/clock.h"
#include "platform/healthstore.h"
#include "text/l.h"

#include <QJsonArray>
#include <QLoggingCategory>
#include <QPointer>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcHealth, "halvenmark.health", QtWarningMsg)

namespace {

using namespace std::chrono_literals;

QString storedUser()
{
    return AppData::setting(QString::fromLatin1(HealthSync::userKey)).toString();
}

// The server's own words when it gave some, else "HTTP <status>", else the usual line.
QString syncFailureText(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::Failed &failed) {
        return failed.description();
    } catch (const HealthStoreError &store) {
        return store.description;
    } catch (...) {
        return FailureText::of(std::current_exception());
    }
}

} // namespace

HealthSync::HealthSync(Api &api, HealthStore *store, CurrentUser currentUser, const Clock &clock,
                       QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_store(store)
    , m_currentUser(std::move(currentUser))
    , m_clock(clock)
    , m_linked(!storedUser().isEmpty())
{}

QDateTime HealthSync::localNow() const
{
    return m_clock.now().toLocalTime();
}

QString HealthSync::anchorKey(const QString &user)
{
    return u"rb.health.anchor."_s + user;
}

QString HealthSync::unavailableText()
{
    return L::t(
        u"Apple Health זמין רק באייפון. פתחו את Halvenmark באייפון כדי לחבר."_s,
        u"Apple Health is on iPhone only. Open Halvenmark on your iPhone to connect."_s,
        u"Apple Health есть только на iPhone. Откройте Halvenmark на iPhone, чтобы подключить."_s);
}

QVariantMap HealthSync::viewMap() const
{
    return m_view ? m_view->json.toVariantMap() : QVariantMap();
}

void HealthSync::setStore(HealthStore *store)
{
    if (m_observing && m_store)
        m_store->stopObserving();
    m_observing = false;
    m_store = store;
    if (m_linked && m_store)
        startObserving();
}

void HealthSync::arm()
{
    const QString linkedBy = storedUser();
    if (!m_store || linkedBy.isEmpty())
        return;
    const QString current = m_currentUser();
    if (!current.isEmpty() && current != linkedBy) {
        qCInfo(lcHealth) << "another account signed in: health unlinked on this device";
        unlinkLocally();
        return;
    }
    setLinked(true);
    startObserving();
}

QCoro::Task<> HealthSync::connect()
{
    if (!m_store) {
        setFailure(unavailableText());
        co_return;
    }
    QPointer<HealthSync> self(this);
    HealthStore *store = m_store;
    try {
        co_await store->requestRead();
    } catch (...) {
        if (!self)
            co_return;
        setFailure(L::t(u"לא ניתן לפתוח את Apple Health: "_s, u"Could not open Apple Health: "_s,
                        u"Не удалось открыть Apple Health: "_s) +
                   syncFailureText(std::current_exception()));
        co_return;
    }
    if (!self)
        co_return;
    const QString user = m_currentUser();
    if (user.isEmpty()) {
        setFailure(
            L::t(u"לא נכנסתם לחשבון."_s, u"You are not signed in."_s, u"Вы не вошли в аккаунт."_s));
        co_return;
    }
    AppData::setSetting(QString::fromLatin1(userKey), user);
    AppData::removeSetting(anchorKey(user));
    setFailure({});
    setLinked(true);
    startObserving();
    co_await sync();
}

QCoro::Task<> HealthSync::sync()
{
    if (!m_linked || !m_store)
        co_return;
    if (m_syncing) {
        m_pending = true;
        co_return;
    }
    QPointer<HealthSync> self(this);
    setSyncing(true);
    m_pending = false;
    std::exception_ptr error;
    try {
        do {
            m_pending = false;
            co_await syncOnce();
            if (!self)
                co_return;
        } while (m_pending);
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;
    m_pending = false;
    if (!error) {
        setFailure({});
        co_await refresh();
        if (!self)
            co_return;
    } else {
        setFailure(syncFailureText(error));
    }
    setSyncing(false);
}

QCoro::Task<> HealthSync::syncOnce()
{
    QPointer<HealthSync> self(this);
    HealthStore *store = m_store;
    if (!store)
        co_return;
    const QString user = storedUser();
    std::optional<QByteArray> anchor = loadAnchor();
    const bool first = !anchor;
    const QDateTime start = localNow().addDays(first ? -365 : -60);
    const QString device = store->deviceName();
    const QJsonArray days = co_await dailyTotals(first ? 30 : 14);
    if (!self || m_store != store)
        co_return;
    for (;;) {
        const QByteArray from = anchor.value_or(QByteArray());
        const HealthChanges changes = co_await store->workouts(start, from, pageLimit);
        if (!self || m_store != store)
            co_return;
        QJsonArray workouts;
        for (const HealthWorkoutSample &sample : changes.added)
            workouts.append(HealthRows::workout(sample));
        const QJsonObject body{
            {u"device"_s, device},
            {u"workouts"_s, workouts},
            {u"deleted"_s, QJsonArray::fromStringList(changes.deleted)},
            {u"days"_s, days},
        };
        const Api::Options options;
        const QJsonObject answer = co_await m_api.post(HealthEndpoints::sync(), body, options);
        if (!self)
            co_return;
        // Unlinked, or linked by someone else, while the page was on its way: not ours to keep.
        if (storedUser() != user)
            co_return;
        saveAnchor(changes.anchor);
        if (auto view = HealthView::ofAnswer(answer))
            setView(std::move(view));
        if (changes.added.size() + changes.deleted.size() <= pageLimit - 1)
            break;
        anchor = changes.anchor;
    }
}

QCoro::Task<QJsonArray> HealthSync::dailyTotals(int days)
{
    const QDateTime now = localNow();
    const QDateTime from(now.date().addDays(-(days - 1)), QTime(0, 0), now.timeSpec());
    HealthRows::DayValues values;
    const HealthMetric metrics[] = {HealthMetric::Steps, HealthMetric::ActiveEnergy,
                                    HealthMetric::ExerciseTime, HealthMetric::RestingHeartRate};
    QPointer<HealthSync> self(this);
    HealthStore *store = m_store;
    for (const HealthMetric metric : metrics) {
        const QList<std::pair<QDate, double>> daily = co_await store->daily(metric, from, now);
        if (!self || m_store != store)
            co_return QJsonArray();
        for (const auto &[day, value] : daily)
            values[day][metric] = value;
    }
    co_return HealthRows::days(values);
}

QCoro::Task<> HealthSync::refresh()
{
    QPointer<HealthSync> self(this);
    std::optional<QJsonValue> answer;
    try {
        answer = co_await m_api.raw(HealthEndpoints::summary(), "GET"_ba, 30s);
    } catch (...) {
        if (self)
            setFailure(FailureText::of(std::current_exception()));
        co_return;
    }
    if (!self || !answer)
        co_return;
    try {
        setView(HealthView::ofAnswer(*answer));
    } catch (...) {
        setFailure(FailureText::of(std::current_exception()));
    }
}

QCoro::Task<> HealthSync::disconnect(bool forget)
{
    QPointer<HealthSync> self(this);
    bool done = false;
    try {
        const QJsonObject body{{u"forget"_s, forget}};
        const Api::Options options;
        co_await m_api.post(HealthEndpoints::disconnect(), body, options);
        done = true;
    } catch (...) {
    }
    if (!self)
        co_return;
    if (!done) {
        setFailure(
            L::t(u"אין חיבור לשרת."_s, u"Cannot reach the server."_s, u"Нет связи с сервером."_s));
        co_return;
    }
    setFailure({});
    unlinkLocally();
}

void HealthSync::unlinkLocally()
{
    if (m_observing) {
        if (m_store)
            m_store->stopObserving();
        m_observing = false;
    }
    const QString user = storedUser();
    AppData::removeSetting(QString::fromLatin1(userKey));
    AppData::removeSetting(anchorKey(user));
    setLinked(false);
}

void HealthSync::startObserving()
{
    if (m_observing || !m_store)
        return;
    m_observing = true;
    QPointer<HealthSync> self(this);
    m_store->observe([self] {
        if (self)
            self->sync();
    });
}

std::optional<QByteArray> HealthSync::loadAnchor() const
{
    const QString text = AppData::setting(anchorKey(storedUser())).toString();
    if (text.isEmpty())
        return std::nullopt;
    const auto decoded = QByteArray::fromBase64Encoding(text.toLatin1());
    if (!decoded || decoded.decoded.isEmpty())
        return std::nullopt;
    return decoded.decoded;
}

void HealthSync::saveAnchor(const QByteArray &anchor)
{
    AppData::setSetting(anchorKey(storedUser()), QString::fromLatin1(anchor.toBase64()));
}

void HealthSync::setView(std::optional<HealthView> view)
{
    m_view = std::move(view);
    emit viewChanged();
}

void HealthSync::setFailure(const QString &failure)
{
    if (m_failure == failure)
        return;
    m_failure = failure;
    emit failureChanged();
}

void HealthSync::setLinked(bool linked)
{
    if (m_linked == linked)
        return;
    m_linked = linked;
    emit linkedChanged();
}

void HealthSync::setSyncing(bool syncing)
{
    if (m_syncing == syncing)
        return;
    m_syncing = syncing;
    emit syncingChanged();
}
