#include "chatfollower.h"

#include "console.h"
#include "render.h"
#include "terminaltext.h"

#include "chat/store/chatstore.h"
#include "text/l.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

void printJsonLine(const QJsonObject &object)
{
    Console::out(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

} // namespace

ChatFollower::ChatFollower(ChatStore *store, bool json)
    : m_json(json)
{
    QObject::connect(store, &ChatStore::laneChanged, store,
                     [this](const Lane &lane) { onLane(lane); });
    QObject::connect(store, &ChatStore::messageAdded, store,
                     [this](const ChatMessage &m) { onMessage(m); });
}

void ChatFollower::onMessage(const ChatMessage &m)
{
    if (m_json) {
        QJsonObject object = m.toJson();
        object.insert(u"type"_s, u"message"_s);
        printJsonLine(object);
    } else if (m.role == u"assistant") {
        Console::out(u"💬 "_s + L::t(u"הסוכן"_s, u"Agent"_s, u"Агент"_s) + u": "_s +
                     Markup::AnsiWriter::render(m.text, RenderCommand::options()));
    }
}

void ChatFollower::onLane(const Lane &lane)
{
    if (m_json) {
        QJsonArray tools;
        for (const Activity &step : lane.tools)
            tools.append(QJsonObject{{u"id"_s, step.id},
                                     {u"title"_s, step.title},
                                     {u"detail"_s, step.detail},
                                     {u"status"_s, step.status}});
        QJsonObject object{{u"type"_s, u"lane"_s},        {u"run_id"_s, lane.id},
                           {u"label"_s, lane.heading()},  {u"text"_s, lane.text},
                           {u"after"_s, lane.after},      {u"tools"_s, tools},
                           {u"finished"_s, lane.finished}};
        if (lane.outcome)
            object.insert(u"outcome"_s, *lane.outcome);
        printJsonLine(object);
        return;
    }
    Seen &seen = m_seen[lane.id];
    if (lane.heading() != seen.label || lane.text != seen.text) {
        seen.label = lane.heading();
        seen.text = lane.text;
        const QString last = lane.text.section(u'\n', -1, -1, QString::SectionSkipEmpty);
        Console::out(u"▸ "_s + TerminalText::safe(lane.heading()) +
                     (last.isEmpty() ? QString() : u": "_s + TerminalText::safe(last.left(160))));
    }
    for (const Activity &step : lane.tools) {
        if (seen.tools.value(step.id) == step.status)
            continue;
        seen.tools.insert(step.id, step.status);
        const QString detail = step.usefulDetail();
        Console::out(u"  ↳ "_s + TerminalText::safe(step.title) +
                     (detail.isEmpty() ? QString() : u" — "_s + TerminalText::safe(detail)) +
                     u" ["_s + TerminalText::safe(step.status) + u"]"_s);
    }
    if (lane.finished && !seen.finished) {
        seen.finished = true;
        Console::out(u"✓ "_s + TerminalText::safe(lane.heading()) + u" ("_s +
                     TerminalText::safe(lane.outcome.value_or(u"completed"_s)) + u")"_s);
    }
}
