#pragma once

#include <QString>
#include <QStringView>

// Every text the server supplies passes here before the terminal prints it: a label, a tool
// step, a message, an error detail, an e-mail address or a page name could otherwise carry
// escape sequences that recolour, retitle or rewrite the user's terminal.
namespace TerminalText {

enum class Lines { Join, Keep };

// Control characters made visible (ESC shows as ␛), as agent replies are. With Lines::Keep a
// line break stays a line break (a message body); with Lines::Join it shows as ␊ (a label).
QString safe(QStringView text, Lines lines = Lines::Join);

} // namespace TerminalText
