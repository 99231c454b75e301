#pragma once

#include <QCoroTask>
#include <QString>
#include <QStringList>

#include <optional>

// Where the text of `chat send` comes from: its words, stdin, or the user's editor.
namespace TurnInput {

// No words, or the single word "-": the text is read from stdin.
bool fromStdin(const QStringList &words);

// Everything on stdin (on a terminal, after saying how to end it). Nothing when it cannot be read.
std::optional<QString> readStdin();

// The editor to run: $VISUAL, else $EDITOR, else Debian's sensible-editor.
QString editor();

// The text the user writes in the editor, its "#" lines dropped and trimmed; nothing when the
// editor could not run or failed (the reason said on stderr).
QCoro::Task<std::optional<QString>> fromEditor();

// The editor's file with its comment lines taken out.
QString withoutComments(const QString &written);

} // namespace TurnInput
