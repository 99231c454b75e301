#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

enum class VaultKind { ApiKey, Passkey, Login, Note, Card, Signature };

namespace VaultKinds {
QString raw(VaultKind kind);
std::optional<VaultKind> from(const QString &raw);
const QList<VaultKind> &all();
} // namespace VaultKinds

// One secret as the server lists it: what it is and what it holds, never its values.
struct VaultItem {
    QString id;
    QString kind; // raw, so a kind this client does not know still shows
    QString title;
    QString username;
    QString url;
    QString client;
    QString service;
    QString site;
    QString location;
    QString cardholder;
    QString last4;
    QJsonValue has;
    QString updatedAt;
    bool primary = false;
    QJsonValue secrets;

    // Throws DecodeError when a present key has the wrong type.
    static VaultItem fromJson(const QJsonValue &value, const QString &path = {});
    QJsonObject toJson() const;
};

// "webapi/vault": {"items": [...]}.
QList<VaultItem> vaultListBody(const QJsonValue &body);
// One item's answer: {"item": {...}, "value": "..."} ("value" only when revealing).
struct VaultOneBody {
    VaultItem item;
    QString value;
    static VaultOneBody from(const QJsonValue &body);
};
