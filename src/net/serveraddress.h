#pragma once

#include <QString>
#include <QUrl>

// The one server the client talks to. Plain http is accepted only for loopback hosts
// (development and tests); anything else must be https.
struct ServerAddress {
    QUrl url;      // normalised: ends with "/" so paths append below it
    QString error; // why the address was refused; empty when usable

    bool valid() const { return error.isEmpty(); }

    static ServerAddress parse(const QString &text);
    // HALVENMARK_SERVER when set, else the address compiled into the build.
    static ServerAddress configured();
    // The address compiled into the build, whatever the environment says.
    static ServerAddress compiledIn();
};
