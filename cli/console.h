#pragma once

#include <QJsonValue>
#include <QString>

// The terminal: results on stdout, everything else (notes, errors) on stderr.
namespace Console {

void out(const QString &line);
void err(const QString &line);
void json(const QJsonValue &value);

bool stdinIsTerminal();
// One line from stdin; without echo when stdin is a terminal.
QString readSecret(const QString &prompt);

} // namespace Console
