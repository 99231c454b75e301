#pragma once

#include <QJsonValue>
#include <QString>

// The terminal: results on stdout, everything else (notes, errors) on stderr.
namespace Console {

void out(const QString &line);
// Text as it is, no line end.
void write(const QString &text);
void err(const QString &line);
void json(const QJsonValue &value);

bool stdinIsTerminal();
// One line from stdin; without echo when stdin is a terminal.
QString readSecret(const QString &prompt);

} // namespace Console
