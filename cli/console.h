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

// Asks a yes/no question on a terminal (stdin and stderr); no when stdin is not one, or the
// answer is not yes in any of the three languages.
bool confirm(const QString &question);

// "y", "yes", "כ", "כן", "д", "да", in any case.
bool isYes(const QString &answer);

} // namespace Console
