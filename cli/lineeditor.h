#pragma once

#include "keydecoder.h"

#include <QString>
#include <QStringList>

// The text being typed at the chat prompt, its cursor and the history of what was sent. No
// terminal here: keys in, text and a view of it out.
class LineEditor
{
public:
    enum class Outcome { Editing, Submit, Interrupt, EndOfInput, Redraw, Suspend };

    Outcome apply(const Key &key);

    const QString &text() const { return m_text; }
    qsizetype cursor() const { return m_cursor; }
    void setText(const QString &text);
    // The submitted text, cleared from the line and remembered in the history.
    QString take();
    void remember(const QString &sent);

    // The text as rows of at most `width` columns (a line break starts a row, a long line
    // wraps), at most maxRows of them: those around the cursor.
    struct View {
        QStringList rows{QString()};
        int cursorRow = 0;
        int cursorColumn = 0;
        int hiddenAbove = 0; // rows scrolled out of sight above

        bool operator==(const View &) const = default;
    };
    View view(int width, int maxRows) const;

    static constexpr qsizetype maxHistory = 500;

private:
    void insert(const QString &text);
    void recall(int step);
    qsizetype previousStop(qsizetype from) const;
    qsizetype nextStop(qsizetype from) const;
    qsizetype wordStart(qsizetype from) const;
    qsizetype wordEnd(qsizetype from) const;

    QString m_text;
    qsizetype m_cursor = 0;
    QStringList m_history;
    qsizetype m_recalled = -1; // index into m_history while browsing it; -1 when not
    QString m_draft;           // what was typed before browsing started
};
