#pragma once

#include <QString>

// A file attached in the composer, its bytes already copied into the outbox folder.
struct ComposerAttachment {
    QString id;
    QString name;
    QString mime;
    QString fileID; // its "<fileID>.data" in the outbox folder
    bool failed = false;

    bool operator==(const ComposerAttachment &) const = default;
};
