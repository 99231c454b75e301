#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

// A file attached to a stored message, as the server describes it.
struct ChatAttachment
{
    QString fileID;
    QString name;
    QString mime;
    std::optional<qint64> size; // bytes
    QString url;
    QString downloadURL;

    // Throws DecodeError for a value that is not an object or a key of the wrong type.
    static ChatAttachment fromJson(const QJsonValue &value);
    // Empty texts and an unknown size are left out.
    QJsonObject toJson() const;

    bool operator==(const ChatAttachment &) const = default;
};
