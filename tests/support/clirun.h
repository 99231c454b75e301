#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QUrl>

// The terminal client run the way scripts run it: a process of its own, with its own data
// folder, the file secret store and the given server.
struct CliRun {
    int status = -1; // the exit status; -1 when the process did not end by itself
    QByteArray out;
    QString err;

    QJsonObject json() const;
};

QProcessEnvironment cliEnvironment(const QString &home, const QUrl &server);

CliRun runCli(const QString &program, const QStringList &args,
              const QProcessEnvironment &environment, const QByteArray &input = {},
              int timeoutMs = 30'000);
