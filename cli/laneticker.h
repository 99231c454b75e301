#pragma once

#include "chat/model/lane.h"

#include <QMetaObject>
#include <QString>

class ChatStore;

// The agent's live lane on stderr while `chat send --wait` waits for its reply. On a terminal
// one line redrawn in place and cleared at the end; otherwise one line each time the heading or
// a step changes (not per streamed word).
class LaneTicker
{
public:
    LaneTicker(ChatStore *store, QString runID, bool terminal, int width);
    ~LaneTicker();
    LaneTicker(const LaneTicker &) = delete;
    LaneTicker &operator=(const LaneTicker &) = delete;

    // "▸ Researcher · search ✓: the last line of its text", cut to width columns (0: whole).
    static QString summary(const Lane &lane, int width, bool withText);

private:
    void show(const Lane &lane);

    QMetaObject::Connection m_connection;
    QString m_run;
    bool m_terminal;
    int m_width;
    QString m_last;
};
