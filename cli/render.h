#pragma once

#include <QString>

// `halvenmark-cli render [--html | --ansi | --plain]`: one message text from stdin, shown on
// stdout as the chosen writer draws it.
namespace RenderCommand {

// mode: "html", "ansi" or "plain". Returns the exit code.
int run(const QString &mode);

// Whether stdout takes colour and hyperlinks: a terminal, and NO_COLOR unset or empty.
bool colourWanted();

// The terminal's width in columns: from the terminal, else $COLUMNS, else 80.
int terminalWidth();

} // namespace RenderCommand
