#include "healthview.h"

#include "net/jsonrecord.h"

using namespace Qt::StringLiterals;

namespace {

std::optional<double> optionalNumber(const JsonRecord &r, const QString &key)
{
    if (!r.has(key))
        return std::nullopt;
    return r.number(key);
}

// Times come as text or as seconds since 1970; both are shown as they came.
QString timeText(const JsonRecord &r, const QString &key)
{
    const QJsonValue value = r.object().value(key);
    if (value.isDouble())
        return QString::number(value.toDouble(), 'f', 0);
    return r.looseString(key);
}

HealthView::Window windowOf(const JsonRecord &r)
{
    HealthView::Window w;
    w.workouts = optionalNumber(r, u"workouts"_s);
    w.minutes = optionalNumber(r, u"minutes"_s);
    w.kcal = optionalNumber(r, u"kcal"_s);
    w.days = optionalNumber(r, u"days"_s);
    w.steps = optionalNumber(r, u"steps"_s);
    w.activeKcal = optionalNumber(r, u"active_kcal"_s);
    w.activeDays = optionalNumber(r, u"active_days"_s);
    w.distanceKm = optionalNumber(r, u"distance_km"_s);
    w.avgHr = optionalNumber(r, u"avg_hr"_s);
    return w;
}

} // namespace

HealthView HealthView::fromJson(const QJsonValue &value)
{
    const JsonRecord r(value, u"health"_s);
    HealthView v;
    v.json = r.object();
    v.connected = r.boolean(u"connected"_s);
    v.device = r.string(u"device"_s);
    v.lastSyncAt = timeText(r, u"last_sync_at"_s);
    if (r.has(u"total_workouts"_s))
        v.totalWorkouts = r.integer(u"total_workouts"_s);
    if (r.has(u"streak"_s))
        v.streak = r.integer(u"streak"_s);
    v.week = windowOf(r.record(u"week"_s));
    v.month = windowOf(r.record(u"month"_s));
    const QJsonArray activities = r.array(u"by_activity"_s);
    for (qsizetype i = 0; i < activities.size(); ++i) {
        const JsonRecord a(activities.at(i), r.pathOf(u"by_activity"_s) + u".%1"_s.arg(i));
        v.byActivity << Activity{a.string(u"activity"_s), optionalNumber(a, u"count"_s),
                                 optionalNumber(a, u"minutes"_s), optionalNumber(a, u"kcal"_s)};
    }
    const QJsonArray workouts = r.array(u"workouts"_s);
    for (qsizetype i = 0; i < workouts.size(); ++i) {
        const JsonRecord w(workouts.at(i), r.pathOf(u"workouts"_s) + u".%1"_s.arg(i));
        Workout row;
        row.uuid = w.string(u"uuid"_s);
        row.activity = w.string(u"activity"_s);
        row.startAt = timeText(w, u"start_at"_s);
        row.endAt = timeText(w, u"end_at"_s);
        row.minutes = optionalNumber(w, u"minutes"_s);
        row.kcal = optionalNumber(w, u"kcal"_s);
        row.distanceM = optionalNumber(w, u"distance_m"_s);
        row.avgHr = optionalNumber(w, u"avg_hr"_s);
        row.maxHr = optionalNumber(w, u"max_hr"_s);
        row.source = w.string(u"source"_s);
        v.workouts << row;
    }
    return v;
}

std::optional<HealthView> HealthView::ofAnswer(const QJsonValue &answer)
{
    if (!answer.isObject())
        return std::nullopt;
    const QJsonValue health = answer.toObject().value(u"health"_s);
    if (!health.isObject())
        return std::nullopt;
    return fromJson(health);
}
