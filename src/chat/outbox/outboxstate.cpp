#include "chat/outbox/outboxstate.h"
#include "chat/chatlogging.h"

#include "chat/model/chatjson.h"

#include <QJsonArray>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {

void report(const QString &what, const DecodeError &e)
{
    qCWarning(lcOutbox).noquote() << "outbox" << what << "dropped: " << e.key << "should be"
                                  << e.expected << "found" << e.found;
}

QList<OutboxTurn> turnsOf(const JsonRecord &r, const QString &key)
{
    QJsonArray items;
    try {
        items = r.array(key);
    } catch (const DecodeError &e) {
        report(key, e);
    }
    QList<OutboxTurn> out;
    out.reserve(items.size());
    for (qsizetype i = 0; i < items.size(); ++i) {
        try {
            out.append(OutboxTurn::fromJson(items.at(i)));
        } catch (const DecodeError &e) {
            report(u"%1[%2]"_s.arg(key).arg(i), e);
        }
    }
    return out;
}

QJsonArray arrayOf(const QList<OutboxTurn> &turns)
{
    QJsonArray out;
    for (const OutboxTurn &t : turns)
        out.append(t.toJson());
    return out;
}

} // namespace

OutboxState OutboxState::fromJson(const QJsonValue &value)
{
    const JsonRecord r(value);
    OutboxState s;
    s.turns = turnsOf(r, u"turns"_s);
    s.drafts = turnsOf(r, u"drafts"_s);
    try {
        s.composerText = ChatJson::optionalString(r, u"composerText"_s);
    } catch (const DecodeError &e) {
        report(u"composer text"_s, e);
    }
    try {
        if (r.has(u"replyTo"_s))
            s.replyTo = ChatMessage::fromJson(r.object().value(u"replyTo"));
    } catch (const DecodeError &e) {
        report(u"reply target"_s, e);
    }
    return s;
}

QJsonObject OutboxState::toJson() const
{
    QJsonObject o{{u"turns"_s, arrayOf(turns)}, {u"drafts"_s, arrayOf(drafts)}};
    if (composerText)
        o.insert(u"composerText"_s, *composerText);
    if (replyTo)
        o.insert(u"replyTo"_s, replyTo->toJson());
    return o;
}
