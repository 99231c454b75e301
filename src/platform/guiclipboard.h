#pragma once

#include "clipboard.h"

// The desktop clipboard of a QGuiApplication (X11 or Wayland).
class GuiClipboard : public Clipboard
{
public:
    bool putSecret(const QString &text) override;
    bool holds(const QString &text) const override;
    void clear() override;

    // Whether this session has a display whose clipboard we can use.
    static bool displayPresent();
};
