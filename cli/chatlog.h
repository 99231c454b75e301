#pragma once

#include "chat/model/chatmessage.h"
#include "chat/model/messagelist.h"
#include "chat/markup/ansiwriter.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include <cstdio>
#include <optional>

// `chat log` as text: one entry per message with its seq, time, author and task. Everything a
// line needs from the environment (language, time zone, terminal) is looked up once per log,
// not per line: a log of thousands of messages is then as quick as printing its bytes.
namespace ChatLog {

struct Facts {
    QString you, youTelegram, agent, task; // "task %1"
    Markup::AnsiWriter::Options render;
};

// The current language's words and the given terminal.
Facts facts(const Markup::AnsiWriter::Options &render);

// Local "yyyy-MM-dd HH:mm" of a time in milliseconds; the zone's offset is asked once per hour
// of UTC seen.
class Clock
{
public:
    QString stamp(qint64 millis);
    void stampInto(QString &out, qint64 millis);

private:
    QHash<qint64, int> m_offsets; // UTC hour → seconds east of UTC
};

// The messages after since, then the last limit of them (pointers into messages).
QList<const ChatMessage *> chosen(const MessageList &messages, std::optional<qint64> since,
                                  std::optional<int> limit);

QString entry(const ChatMessage &m, const Facts &facts, Clock &clock);
// The same entry added to the end of out.
void append(QString &out, const ChatMessage &m, const Facts &facts, Clock &clock);

// The whole log, each entry ended by a line break, as UTF-8.
QByteArray text(const QList<const ChatMessage *> &messages, const Facts &facts);

// The log written to out: made in chunks on the thread pool while earlier chunks are written,
// so that a long log costs little more than its printing.
void print(const QList<const ChatMessage *> &messages, const Facts &facts, FILE *out);

} // namespace ChatLog
