#pragma once

#include "chatlines.h"
#include "chatscreen.h"
#include "keydecoder.h"
#include "lineeditor.h"
#include "slashcommand.h"

#include <QCoroTask>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <variant>

class Clock;

class ChatStore;

// `chat` on a terminal: the transcript above, the agent's live work, the turns in the outbox
// and the status line at the bottom, and an input line that keeps what is typed whatever
// arrives meanwhile.
class InteractiveChat : public QObject
{
    Q_OBJECT

public:
    // The clock dates the turns shown as sent; it outlives the chat.
    InteractiveChat(ChatStore &store, const Clock &clock);

    // The stored conversation, and the terminal in raw mode. False when the terminal refused.
    bool start();
    // Until /quit, Ctrl-C, Ctrl-D on an empty line, or the session ends. The exit status.
    QCoro::Task<int> run();

private:
    void onBytes(const QByteArray &bytes);
    void submit();
    void command(const SlashCommand &command);
    void sendMessage(const QString &text);
    void finish();
    void say(const QString &text);
    void sayMessage(const ChatMessage &m);
    void reprint();
    void showBacklog();
    void refreshInput();
    void refreshBottom();
    ChatLines::Link link() const;
    std::optional<QString> turnNamed(const QString &given);
    void takeBackInto(const QString &turnID);
    static QCoro::Task<> stopTask(QPointer<InteractiveChat> self, int number);
    static QCoro::Task<> retryTurn(QPointer<InteractiveChat> self, QString turnID);
    void suspend();

    ChatStore &m_store;
    const Clock &m_clock;
    ChatScreen m_screen;
    KeyDecoder m_keys;
    LineEditor m_editor;
    QTimer m_escape;
    bool m_done = false;
    bool m_everConnected = false;
    bool m_caughtUp = false; // the first load after start has landed
    QList<ChatMessage> m_backlog;
    QHash<QString, Lane> m_live; // run id → lane on screen
    QStringList m_liveOrder;
    QSet<qint64> m_printedSeqs;
    QSet<QString> m_printedTurns;
    QString m_discarding;                // the turn /discard is taking back
    QSet<QString> m_offline;             // turns whose last attempt found no server
    QHash<QString, QString> m_turnTexts; // turn id → its text, kept past the outbox
    // What the transcript shows lately, to print again after a resize: a message (drawn
    // anew for the new width) or a line of our own.
    QList<std::variant<ChatMessage, QString>> m_recent;
    static constexpr qsizetype maxRecent = 200;
};
