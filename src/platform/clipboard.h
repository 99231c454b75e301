#pragma once

#include <QString>

// The system clipboard, as far as secrets need it.
class Clipboard
{
public:
    virtual ~Clipboard() = default;
    // Makes text the clipboard's only content, marked so clipboard managers neither keep
    // nor sync it. False when there is no clipboard to put it on.
    virtual bool putSecret(const QString &text) = 0;
    // Whether the clipboard still holds exactly this text.
    virtual bool holds(const QString &text) const = 0;
    virtual void clear() = 0;
};
