#include "tasknotifier.h"

#include "chat/model/tasknumber.h"
#include "pushroute.h"
#include "text/l.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int rememberedRuns = 200;
constexpr int bodyLength = 180;

// Where a click leads: the task when the run names one, else the project, else the turn.
QString routeFor(const ChatFrame &end, const ChatFrame &start)
{
    for (const QString &text : {start.label, end.label, end.text}) {
        if (const std::optional<int> task = TaskNumber::opening(text))
            return PushRoute{PushRoute::Kind::Task, QString::number(*task)}.id();
    }
    const std::optional<PushRoute> project = PushRoute::parse(end.conversationID);
    if (project && project->kind == PushRoute::Kind::Project)
        return project->id();
    const qint64 seq = end.userSeq > 0 ? end.userSeq : start.userSeq;
    if (seq > 0)
        return PushRoute{PushRoute::Kind::Message, QString::number(seq)}.id();
    return {};
}

QString oneLine(QString text)
{
    text = text.simplified();
    if (text.size() > bodyLength)
        text = text.left(bodyLength - 1) + u'…';
    return text;
}

} // namespace

TaskNotifier::TaskNotifier(Notifier *notifier, QObject *parent)
    : QObject(parent)
    , m_notifier(notifier)
{}

std::optional<Notifier::Note> TaskNotifier::noticeFor(const ChatFrame &end, const ChatFrame &start)
{
    Notifier::Note note;
    const QString outcome = end.finalOutcome();
    if (end.type == u"error" || (end.type == u"final" && outcome == u"error")) {
        note.title = L::t(u"משימה נכשלה"_s, u"Task failed"_s, u"Задача не выполнена"_s);
        note.body = oneLine(end.error.isEmpty() ? end.text : end.error);
    } else if (end.type == u"final" && (outcome == u"stopped" || outcome == u"cancelled")) {
        note.title = L::t(u"משימה נעצרה"_s, u"Task stopped"_s, u"Задача остановлена"_s);
        note.body = oneLine(start.label);
    } else if (end.type == u"final") {
        note.title = L::t(u"משימה הסתיימה"_s, u"Task finished"_s, u"Задача выполнена"_s);
        note.body = oneLine(end.text.isEmpty() ? start.label : end.text);
    } else {
        return std::nullopt;
    }
    note.key = routeFor(end, start);
    return note;
}

void TaskNotifier::feed(const ChatFrame &frame)
{
    if (frame.runID.isEmpty())
        return;
    if (frame.type == u"run_started") {
        m_started.insert(frame.runID, frame);
        return;
    }
    if (frame.type != u"final" && frame.type != u"error")
        return;
    const ChatFrame start = m_started.take(frame.runID);
    // A socket that reconnects may say the same end twice.
    if (m_told.contains(frame.runID))
        return;
    m_told.append(frame.runID);
    if (m_told.size() > rememberedRuns)
        m_told.removeFirst();
    if (m_foreground || !m_notifier)
        return;
    if (const std::optional<Notifier::Note> note = noticeFor(frame, start))
        m_notifier->show(*note);
}
