#pragma once

#include "platform/healthstore.h"

#include <QDate>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>

// The shapes of an upload to "webapi/health/sync".
namespace HealthRows {

// One workout: times in seconds since 1970, nulls for what was not measured.
QJsonObject workout(const HealthWorkoutSample &sample);

// The metric's key in a day row ("steps", "active_kcal", "exercise_min", "resting_hr").
QString metricKey(HealthMetric metric);
// "yyyy-MM-dd".
QString dayText(QDate day);

using DayValues = QMap<QDate, QMap<HealthMetric, double>>;
// One row per day that has any value.
QJsonArray days(const DayValues &values);

} // namespace HealthRows
