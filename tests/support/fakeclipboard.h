#pragma once

#include "platform/clipboard.h"

// Keeps what it is given; with no clipboard present it refuses and keeps what it had.
class FakeClipboard : public Clipboard
{
public:
    QString content;
    bool secretMark = false;
    bool present = true;

    bool putSecret(const QString &text) override
    {
        content = present ? text : content;
        secretMark = present;
        return present;
    }
    bool holds(const QString &text) const override { return content == text; }
    void clear() override { content.clear(); }
};
