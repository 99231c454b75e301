#pragma once

#include "lineeditor.h"

#include <QObject>
#include <QSocketNotifier>
#include <QStringList>

#include <termios.h>

// The interactive chat's terminal: the transcript scrolls in the upper part (a scroll region),
// and a fixed area at the bottom holds the live work, the status line and the input line.
// Output never lands in what is being typed: every print goes above, then the bottom is
// drawn again with the cursor where the user left it. Raw mode and the scroll region are
// undone on every way out, signals included.
class ChatScreen : public QObject
{
    Q_OBJECT

public:
    ChatScreen();
    ~ChatScreen() override;

    // Stdin and stdout are terminals that can hold a scroll region.
    static bool possible();

    // Raw mode, bracketed paste, the bottom area made room for. False when the terminal
    // would not go into raw mode.
    bool enter();
    // Everything back as it was; the cursor below the last line. Safe to call twice.
    void leave();
    bool active() const { return m_active; }

    int width() const { return m_columns; }
    int height() const { return m_rows; }

    // Lines added to the transcript (each may hold line breaks and SGR styling).
    void print(const QString &text);
    // The bottom area: lines of live work, the status line, and the input (a row or more).
    void setBottom(const QStringList &panel, const QString &status);
    void setInput(const QString &prompt, const LineEditor::View &view, bool rightToLeft);
    // Draws the bottom area again (after a resize, or Ctrl-L).
    void redraw();

signals:
    void bytes(const QByteArray &data);
    // The terminal changed size and was cleared: the transcript's tail should be printed again.
    void resized();
    // SIGINT, SIGTERM, SIGHUP from outside: the chat should end cleanly.
    void terminated();

private:
    void readInput();
    void readSignal();
    void measure();
    void layout(int oldHeight);
    void drawBottom();
    void drawInput();
    int inputHeight() const;
    int bottomHeight() const;
    static void put(const QByteArray &bytes);

    bool m_active = false;
    termios m_saved{};
    int m_rows = 24;
    int m_columns = 80;
    int m_drawnHeight = 0; // rows the bottom area takes on screen now
    QStringList m_panel;
    QString m_status;
    QString m_prompt;
    LineEditor::View m_view;
    bool m_rightToLeft = false;
    QSocketNotifier *m_input = nullptr;
    QSocketNotifier *m_signals = nullptr;
};
