#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

// One tool step of the agent inside a lane.
struct Activity
{
    QString id;
    QString title;  // the tool's name
    QString detail; // its latest summary
    QString status; // "started", then "completed" (or another ending word)

    static Activity fromJson(const QJsonValue &value);
    QJsonObject toJson() const;

    // An open status: "", "started", "running" or "in_progress". Every other word ends a
    // step (or a run): "completed", "complete", "error", "superseded", ...
    static bool isOpen(const QString &status);
    bool done() const { return !isOpen(status); }

    // The detail worth showing under the title, on one line (whitespace collapsed), or
    // empty. Dropped: an empty detail; one with no letter or digit ("…", "-"); one that
    // only repeats the title or the status, ignoring case and leading or trailing
    // punctuation ("Searching the web…" under "Searching the web", "completed").
    QString usefulDetail() const;

    bool operator==(const Activity &) const = default;
};
