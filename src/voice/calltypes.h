#pragma once

#include <QList>
#include <QString>
#include <QVariantMap>

// The records a call shows: transcript lines, background steps, fast answers, trace entries.
namespace CallTypes {

struct Line {
    QString id;
    QString role; // "user" or "assistant"
    QString text;
    bool operator==(const Line &) const = default;
    QVariantMap toMap() const;
};

struct Step {
    QString id;
    QString title;
    QString detail;
    QString jobID;
    QString taskID;
    QString state;
    double changedAt = 0;
    bool operator==(const Step &) const = default;
    QVariantMap toMap() const;
};

struct Source {
    QString title;
    QString url;
    bool operator==(const Source &) const = default;
};

struct FastAnswer {
    QString id;
    QString query;
    QString model;
    QString effort;
    int latencyMS = 0;
    QString state; // "running", "done" or "failed"
    QString error;
    QString stage;
    QStringList queries;
    QString backup;
    double startedAt = 0;
    double finishedAt = 0;
    QString answer;
    bool handedToAgent = false;
    QList<Source> sources;
    bool operator==(const FastAnswer &) const = default;
    QVariantMap toMap() const;
};

struct Event {
    QString id;
    double time = 0;
    QString tag; // "SERVER", "WARN", "AUDIO", "TOOL", "DONE" or "FAST"
    QString text;
    bool operator==(const Event &) const = default;
    QVariantMap toMap() const;
};

} // namespace CallTypes
