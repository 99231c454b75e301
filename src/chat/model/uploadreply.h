#pragma once

#include <QJsonValue>
#include <QString>

#include <optional>

// The server's answer to one file upload.
struct UploadReply
{
    bool ok = false;
    std::optional<QString> fileID; // the server's id of the stored file
    std::optional<QString> name;
    std::optional<QString> error;

    // Lenient: missing keys give the defaults, a file id sent as a number keeps its digits.
    // Throws DecodeError for a value that is not an object or a key of the wrong type.
    static UploadReply fromJson(const QJsonValue &value);
};
