#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

// The server's side of push, as "webapi/push/status" reports it.
struct PushStatus {
    struct Device {
        QString name;
        QString env;
        QString build;
        QString tokenTail; // the token's last characters, enough to tell devices apart
    };

    bool ready = false; // the server can send
    QStringList errors; // readiness codes, e.g. "apns_key_missing"
    QList<Device> devices;

    static PushStatus fromJson(const QJsonObject &json);

    // Whether one of the devices is the one with this token.
    bool lists(const QString &token) const;

    // What a readiness code means, in the current language.
    static QString explain(const QString &code);
};
