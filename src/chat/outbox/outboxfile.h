#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

// A file attached to an outbox turn; its bytes wait in the outbox folder as "<fileID>.data".
struct OutboxFile
{
    QString id;
    QString name; // shown, and sent as the upload's file name
    QString mime;
    QString fileID;

    // Missing keys give empty texts; throws DecodeError for a value that is not an object
    // or a key of the wrong type.
    static OutboxFile fromJson(const QJsonValue &value);
    QJsonObject toJson() const;

    bool operator==(const OutboxFile &) const = default;
};
