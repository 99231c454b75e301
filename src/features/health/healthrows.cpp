#include "healthrows.h"

#include "healthactivity.h"

#include <QLocale>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace HealthRows {

namespace {

QJsonValue orNull(const std::optional<double> &value)
{
    return value ? QJsonValue(*value) : QJsonValue(QJsonValue::Null);
}

double seconds(const QDateTime &time)
{
    return double(time.toMSecsSinceEpoch()) / 1000.0;
}

} // namespace

QJsonObject workout(const HealthWorkoutSample &s)
{
    const double distance =
        std::max({s.walkingRunning.value_or(0), s.cycling.value_or(0), s.swimming.value_or(0)});
    return QJsonObject{
        {u"uuid"_s, s.uuid.toUpper()},  {u"activity"_s, HealthActivity::key(s.activityType)},
        {u"start"_s, seconds(s.start)}, {u"end"_s, seconds(s.end)},
        {u"duration_s"_s, s.duration},  {u"kcal"_s, orNull(s.kcal)},
        {u"distance_m"_s, distance},    {u"avg_hr"_s, orNull(s.avgHr)},
        {u"max_hr"_s, orNull(s.maxHr)}, {u"source"_s, s.source},
    };
}

QString metricKey(HealthMetric metric)
{
    switch (metric) {
    case HealthMetric::Steps:
        return u"steps"_s;
    case HealthMetric::ActiveEnergy:
        return u"active_kcal"_s;
    case HealthMetric::ExerciseTime:
        return u"exercise_min"_s;
    case HealthMetric::RestingHeartRate:
        return u"resting_hr"_s;
    }
    return {};
}

QString dayText(QDate day)
{
    return QLocale::c().toString(day, u"yyyy-MM-dd"_s);
}

QJsonArray days(const DayValues &values)
{
    QJsonArray rows;
    for (auto day = values.cbegin(); day != values.cend(); ++day) {
        if (day.value().isEmpty())
            continue;
        QJsonObject row{{u"day"_s, dayText(day.key())}};
        for (auto metric = day.value().cbegin(); metric != day.value().cend(); ++metric)
            row.insert(metricKey(metric.key()), metric.value());
        rows.append(row);
    }
    return rows;
}

} // namespace HealthRows
