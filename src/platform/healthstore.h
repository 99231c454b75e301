#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include <exception>
#include <functional>
#include <optional>
#include <utility>

// One workout as the health store keeps it.
struct HealthWorkoutSample {
    QString uuid;         // upper-case text form
    int activityType = 0; // the store's raw activity number
    QDateTime start;
    QDateTime end;
    double duration = 0; // seconds
    std::optional<double> kcal;
    // Distance sums in metres, by how it was covered.
    std::optional<double> walkingRunning;
    std::optional<double> cycling;
    std::optional<double> swimming;
    std::optional<double> avgHr; // beats per minute
    std::optional<double> maxHr;
    QString source; // the app or device that recorded it
};

enum class HealthMetric {
    Steps,            // sum, count
    ActiveEnergy,     // sum, kilocalories
    ExerciseTime,     // sum, minutes
    RestingHeartRate, // average, beats per minute
};

// What changed since an anchor, and the anchor that follows it.
struct HealthChanges {
    QList<HealthWorkoutSample> added;
    QStringList deleted; // UUIDs
    QByteArray anchor;
};

// The store could not be read; `description` says why, in the system's words.
struct HealthStoreError : std::exception {
    QString description;
    explicit HealthStoreError(QString description)
        : description(std::move(description))
    {}
    const char *what() const noexcept override { return "HealthStoreError"; }
};

// The device's health store, read only.
class HealthStore
{
public:
    virtual ~HealthStore() = default;

    // The device model name sent with every upload.
    virtual QString deviceName() const = 0;
    // Asks to read workouts, energy, heart rate, distances, steps and exercise time.
    // Throws HealthStoreError.
    virtual QCoro::Task<> requestRead() = 0;
    // One value per day that has any between from and to: a sum, or an average for the
    // heart rate. Days are calendar days of the local time zone.
    virtual QCoro::Task<QList<std::pair<QDate, double>>> daily(HealthMetric metric, QDateTime from,
                                                               QDateTime to) = 0;
    // Workouts that started at or after `since`, added or deleted after `anchor` (empty:
    // from the beginning), at most `limit` changes.
    virtual QCoro::Task<HealthChanges> workouts(QDateTime since, QByteArray anchor, int limit) = 0;
    // Calls `changed` whenever a workout is stored; until stopObserving().
    virtual void observe(std::function<void()> changed) = 0;
    virtual void stopObserving() = 0;
};
