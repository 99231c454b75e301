#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

// What the chat screen shows of a turn that is still in the outbox.
struct PendingTurn
{
    QString id; // the turn id, also its client request id
    QString text;
    QStringList files;   // names of its files
    QString error;       // empty when none
    QString reason;      // the server's own words, shown under the error
    bool refused = false; // waits for Retry (not for the network)
    bool online = false; // the device is online
    bool processing = false; // the server accepted it and the agent is working
    double created = 0;
    std::optional<double> processingSince;
    QHash<QString, QString> uploads; // file id → progress text
    QString voiceUpload;             // progress text of the voice note's upload
    std::optional<double> lastProgress; // when an upload last moved

    // An upload moved within the last 15 seconds (both ends inclusive; a progress time
    // ahead of now, after a clock change, counts as moving).
    bool moving(double now) const;

    bool operator==(const PendingTurn &) const = default;
};
