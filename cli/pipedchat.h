#pragma once

#include <QCoroTask>
#include <QObject>
#include <QStringList>

class ChatStore;

// `chat` without a screen (stdin a pipe or a file, or a terminal that cannot hold one): each
// line is a turn or a command, sent in order. Before it ends it waits until every turn was
// accepted, or says which ones the outbox keeps (exit 4) or the server refused (exit 1).
// Nothing here writes an escape sequence.
class PipedChat : public QObject
{
    Q_OBJECT

public:
    // live: also show what arrives meanwhile (a person types at a plain terminal).
    PipedChat(ChatStore &store, bool live);

    QCoro::Task<int> run();

private:
    void readSome();
    QCoro::Task<> handle(QString line);
    int verdict();

    ChatStore &m_store;
    bool m_live;
    QByteArray m_pending;
    QStringList m_lines;
    bool m_closed = false;
    bool m_caughtUp = false;
    QStringList m_sent; // turn ids, in order
    int m_refused = 0;  // turns that never got into the outbox, or were withdrawn
};
