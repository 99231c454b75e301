#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

// One thing the user did at the keyboard, decoded from the bytes a terminal sends.
struct Key {
    enum class Kind {
        Text,  // typed characters (text)
        Paste, // a bracketed paste, whole (text)
        Enter,
        NewLine, // Alt-Enter or Ctrl-J: a line break inside the message
        Backspace,
        Delete,
        Left,
        Right,
        WordLeft,
        WordRight,
        Home,
        End,
        Up,
        Down,
        KillToEnd,   // Ctrl-K
        KillToStart, // Ctrl-U
        KillWord,    // Ctrl-W, Alt-Backspace
        Interrupt,   // Ctrl-C
        EndOfInput,  // Ctrl-D
        Redraw,      // Ctrl-L
        Suspend,     // Ctrl-Z
    };
    Kind kind = Kind::Text;
    QString text;

    bool operator==(const Key &) const = default;
};

// Bytes from a terminal in raw mode, in pieces as they arrive, turned into keys. A sequence
// or a UTF-8 character cut between two reads waits for the rest; a paste between ESC[200~
// and ESC[201~ comes out as one Paste however many reads it took.
class KeyDecoder
{
public:
    QList<Key> feed(const QByteArray &bytes);
    // A lone ESC that waited: the Escape key itself, which means nothing here.
    void flushEscape();
    bool waitingOnEscape() const { return m_pending == "\x1b"; }
    bool inPaste() const { return m_pasting; }

private:
    // Decodes one key at the start of m_pending; the bytes it took, 0 when more are needed.
    qsizetype takeOne(QList<Key> &keys);

    QByteArray m_pending;
    QByteArray m_paste;
    bool m_pasting = false;
};
