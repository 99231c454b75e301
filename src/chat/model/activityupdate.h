#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

// One stored lane event, as the messages endpoint replays them.
struct ActivityUpdate
{
    struct Tool
    {
        QString name;
        QString summary;
        QString status;

        bool operator==(const Tool &) const = default;
    };

    qint64 seq = 0;
    QString id; // the run id
    QString label;
    QString text;
    qint64 after = 0;
    std::optional<int> attempt;
    bool finished = false;
    std::optional<QString> outcome;
    std::optional<Tool> tool;

    // Lenient; the run id is read from "id", or "run_id" when that is missing. A tool
    // with neither name nor summary counts as none.
    static ActivityUpdate fromJson(const QJsonValue &value);
    QJsonObject toJson() const;

    bool operator==(const ActivityUpdate &) const = default;
};
