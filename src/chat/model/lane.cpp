#include "chat/model/lane.h"

#include "chat/model/activityupdate.h"
#include "chat/model/chatjson.h"
#include "chat/model/tasknumber.h"
#include "text/l.h"
#include "text/since.h"

#include <QHash>
#include <QJsonArray>
#include <QSet>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

QList<Activity> activities(const JsonRecord &r, const QString &key)
{
    const QJsonArray items = r.array(key);
    QList<Activity> out;
    out.reserve(items.size());
    for (const QJsonValue &item : items)
        out.append(Activity::fromJson(item));
    return out;
}

QJsonArray arrayOf(const QList<Activity> &tools)
{
    QJsonArray out;
    for (const Activity &a : tools)
        out.append(a.toJson());
    return out;
}

template<class T>
std::optional<T> highest(const std::optional<T> &a, const std::optional<T> &b)
{
    if (a && b)
        return std::max(*a, *b);
    return a ? a : b;
}

void addSummary(QStringList &summaries, const QString &summary)
{
    const QString line = summary.simplified();
    if (!line.isEmpty() && !summaries.contains(line))
        summaries.append(line);
}

} // namespace

Lane Lane::fromJson(const QJsonValue &value)
{
    using namespace ChatJson;
    const JsonRecord r(value);
    Lane l;
    l.id = r.string(u"id"_s);
    l.label = r.string(u"label"_s);
    l.text = r.string(u"text"_s);
    l.after = r.integer(u"after"_s);
    l.summaries = r.strings(u"summaries"_s);
    l.tools = activities(r, u"tools"_s);
    l.finished = r.boolean(u"finished"_s);
    l.outcome = optionalString(r, u"outcome"_s);
    l.attempt = optionalInt(r, u"attempt"_s);
    l.eventCursor = optionalInteger(r, u"eventCursor"_s);
    if (r.has(u"replaySummaries"_s))
        l.replaySummaries = r.strings(u"replaySummaries"_s);
    if (r.has(u"replayTools"_s))
        l.replayTools = activities(r, u"replayTools"_s);
    return l;
}

QJsonObject Lane::toJson() const
{
    QJsonObject o{
        {u"id"_s, id},
        {u"label"_s, label},
        {u"text"_s, text},
        {u"after"_s, after},
        {u"summaries"_s, QJsonArray::fromStringList(summaries)},
        {u"tools"_s, arrayOf(tools)},
        {u"finished"_s, finished},
    };
    if (outcome)
        o.insert(u"outcome"_s, *outcome);
    if (attempt)
        o.insert(u"attempt"_s, *attempt);
    if (eventCursor)
        o.insert(u"eventCursor"_s, *eventCursor);
    if (replaySummaries)
        o.insert(u"replaySummaries"_s, QJsonArray::fromStringList(*replaySummaries));
    if (replayTools)
        o.insert(u"replayTools"_s, arrayOf(*replayTools));
    return o;
}

QString Lane::workingOnIt()
{
    return L::t(u"עובדים על זה"_s, u"Working on it"_s, u"Работаю над этим"_s);
}

QString Lane::heading() const
{
    return label.isEmpty() ? workingOnIt() : label;
}

QString Lane::activityKey() const
{
    if (const auto n = taskNumber())
        return u"task:"_s + QString::number(*n);
    return id;
}

std::optional<int> Lane::taskNumber() const
{
    if (const auto n = TaskNumber::opening(label))
        return n;
    return TaskNumber::opening(id);
}

QString Lane::countdown(std::optional<double> until, double now) const
{
    if (finished || !until || !std::isfinite(*until))
        return {};
    const double left = *until - now;
    if (left <= 0)
        return L::t(u"בכל רגע"_s, u"Any moment now"_s, u"Вот-вот"_s);
    // Past a year the exact figure means nothing (and a far one overflows an integer).
    const QString time = Since::lasted(qint64(std::ceil(std::min(left, 365.0 * 86400))));
    return L::t(u"נותרו "_s + time, time + u" left"_s, u"Осталось "_s + time);
}

void Lane::record(const QString &status)
{
    const QString word = status.trimmed();
    if (Activity::isOpen(word))
        return;
    finished = true;
    if (!outcome)
        outcome = word;
}

void Lane::recordTool(const QString &name, const QString &summary, const QString &status)
{
    const QString word = status.trimmed().isEmpty() ? u"started"_s : status.trimmed();
    const bool ending = !Activity::isOpen(word);
    for (qsizetype i = tools.size() - 1; i >= 0; --i) {
        Activity &step = tools[i];
        if (step.title != name || step.done())
            continue;
        if (!summary.isEmpty())
            step.detail = summary;
        step.status = word;
        if (ending)
            addSummary(summaries, step.detail);
        return;
    }
    qsizetype sameName = 0;
    const Activity *last = nullptr;
    for (const Activity &step : std::as_const(tools)) {
        if (step.title == name) {
            ++sameName;
            last = &step;
        }
    }
    if (ending && last && last->status == word && (summary.isEmpty() || summary == last->detail))
        return;
    tools.append(Activity{name + u':' + QString::number(sameName + 1), name, summary, word});
    if (ending)
        addSummary(summaries, summary);
}

void Lane::replay(const ActivityUpdate &update)
{
    if (!id.isEmpty() && !update.id.isEmpty() && update.id != id)
        return;
    if (update.seq >= 1 && eventCursor && update.seq <= *eventCursor)
        return;
    if (id.isEmpty())
        id = update.id;
    if (!update.label.isEmpty())
        label = update.label;
    if (!update.text.isEmpty())
        text = update.text;
    if (update.after >= 1)
        after = update.after;
    if (update.attempt)
        attempt = update.attempt;
    if (update.tool)
        recordTool(update.tool->name, update.tool->summary, update.tool->status);
    const bool named = update.outcome && !update.outcome->trimmed().isEmpty();
    if (update.finished || named)
        record(named ? *update.outcome : u"completed"_s);
    if (update.seq >= 1)
        eventCursor = std::max(eventCursor.value_or(0), update.seq);
}

Lane Lane::replayed(const Lane &onto) const
{
    if (!id.isEmpty() && !onto.id.isEmpty() && id != onto.id)
        return onto;
    return merged(*this, onto);
}

QStringList Lane::mergedSummaries(const QStringList &a, const QStringList &b)
{
    QStringList out;
    out.reserve(a.size() + b.size());
    QSet<QString> seen;
    for (const QStringList *list : {&a, &b}) {
        for (const QString &s : *list) {
            if (s.isEmpty() || seen.contains(s))
                continue;
            seen.insert(s);
            out.append(s);
        }
    }
    return out;
}

QList<Activity> Lane::mergedTools(const QList<Activity> &a, const QList<Activity> &b)
{
    QList<Activity> out;
    out.reserve(a.size() + b.size());
    QHash<QString, qsizetype> at;
    for (const QList<Activity> *list : {&a, &b}) {
        for (const Activity &step : *list) {
            const auto found = at.constFind(step.id);
            if (found == at.cend()) {
                at.insert(step.id, out.size());
                out.append(step);
                continue;
            }
            Activity &kept = out[*found];
            // An open copy of an ended step is older news, detail and all.
            if (kept.done() && !step.done())
                continue;
            if (!step.title.isEmpty())
                kept.title = step.title;
            if (!step.detail.isEmpty())
                kept.detail = step.detail;
            kept.status = step.status;
        }
    }
    return out;
}

Lane Lane::merged(const Lane &a, const Lane &b)
{
    // Which record's label, text and anchor to show. A finished record holds the run's last
    // word. Between two that both applied stored updates, the one that applied later ones.
    // Otherwise b, the later record, which may carry socket deltas that are never stored.
    bool aAhead = false;
    if (a.finished != b.finished)
        aAhead = a.finished;
    else if (a.eventCursor && b.eventCursor)
        aAhead = *a.eventCursor > *b.eventCursor;
    const Lane &first = aAhead ? a : b;
    const Lane &second = aAhead ? b : a;
    const auto pick = [](const QString &x, const QString &y) { return x.isEmpty() ? y : x; };

    Lane out;
    out.id = pick(a.id, b.id);
    out.label = pick(first.label, second.label);
    out.text = pick(first.text, second.text);
    out.after = first.after >= 1 ? first.after : second.after;
    out.summaries = mergedSummaries(a.summaries, b.summaries);
    out.tools = mergedTools(a.tools, b.tools);
    out.finished = a.finished || b.finished;
    out.outcome = a.outcome ? a.outcome : b.outcome;
    out.attempt = highest(a.attempt, b.attempt);
    out.eventCursor = highest(a.eventCursor, b.eventCursor);
    if (a.replaySummaries || b.replaySummaries)
        out.replaySummaries = mergedSummaries(a.replaySummaries.value_or(QStringList()),
                                              b.replaySummaries.value_or(QStringList()));
    if (a.replayTools || b.replayTools)
        out.replayTools = mergedTools(a.replayTools.value_or(QList<Activity>()),
                                      b.replayTools.value_or(QList<Activity>()));
    return out;
}

QList<Lane> Lane::coalesced(const QList<Lane> &lanes)
{
    QList<Lane> out;
    out.reserve(lanes.size());
    QHash<QString, qsizetype> at;
    for (const Lane &lane : lanes) {
        const auto found = at.constFind(lane.id);
        if (found == at.cend()) {
            at.insert(lane.id, out.size());
            out.append(lane);
        } else {
            out[*found] = merged(out[*found], lane);
        }
    }
    return out;
}
