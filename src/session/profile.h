#pragma once

#include <QHash>
#include <QJsonObject>
#include <QSet>
#include <QString>


// Who the signed-in user is and what they may open: the fields the session publishes,
// and the two server replies and the offline copy they come from.
struct Profile {
    QString user;
    QString role = QStringLiteral("user");
    QString email;
    QSet<QString> pages;
    QHash<QString, QString> prefs;
    bool voiceLive = false;
    QString workspace;

    bool isOwner() const;
    // Generated account names ("tt_…") mean nothing to people: show the e-mail instead.
    QString label() const;
    // The owner may everything; "voice" follows voiceLive; anything else needs its page key.
    bool may(const QString &key) const;

    bool operator==(const Profile &) const = default;
};

// The reply of "webapi/me".
struct Me {
    bool authenticated = false;
    Profile profile; // prefs untouched

    static Me fromJson(const QJsonValue &value);
};

// The reply of "webapi/prefs".
struct Prefs {
    QHash<QString, QString> prefs;

    static Prefs fromJson(const QJsonValue &value);
};

// The copy of the profile kept on disk so the app opens signed in without a network.
struct OfflineProfile {
    QString sessionHash;
    Profile profile;
    QString server; // the server base address the session belongs to

    QJsonObject toJson() const;
    static OfflineProfile fromJson(const QJsonValue &value);
};
