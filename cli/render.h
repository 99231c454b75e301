#pragma once

#include "chat/markup/ansiwriter.h"

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

// Whether a terminal with this TERM (and TMUX) shows OSC 8 hyperlinks: not tmux or screen
// (they drop them), not the Linux console, not a dumb terminal.
bool hyperlinksShown(const QByteArray &term, bool inTmux);

// --bidi: direction marks even into a pipe.
void setBidi(bool on);

// How agent text is drawn on stdout, looked up once per run: a log of thousands of messages
// asks the terminal nothing per line.
const Markup::AnsiWriter::Options &options();

} // namespace RenderCommand
