#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

// The server's summary of the user's health, as the panel shows it. Numbers the server
// leaves out stay absent.
struct HealthView {
    struct Window {
        std::optional<double> workouts, minutes, kcal, days, steps, activeKcal, activeDays,
            distanceKm, avgHr;
    };
    struct Activity {
        QString activity;
        std::optional<double> count, minutes, kcal;
    };
    struct Workout {
        QString uuid;
        QString activity;
        QString startAt, endAt;
        std::optional<double> minutes, kcal, distanceM, avgHr, maxHr;
        QString source;
    };

    bool connected = false;
    QString device;
    QString lastSyncAt;
    std::optional<qint64> totalWorkouts;
    std::optional<qint64> streak;
    Window week;
    Window month;
    QList<Activity> byActivity;
    QList<Workout> workouts;
    QJsonObject json; // as it came, for screens and --json

    // Throws DecodeError when a present key has the wrong type.
    static HealthView fromJson(const QJsonValue &value);
    // The "health" of a read or sync answer, when there is one.
    static std::optional<HealthView> ofAnswer(const QJsonValue &answer);
};
