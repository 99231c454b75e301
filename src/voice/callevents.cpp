// What the server's frames do to a call: the transcript, the phase, steps, fast answers, trace.
#include "voice/call.h"

#include "platform/clock.h"
#include "text/l.h"
#include "voice/callaudio.h"

#include <QJsonArray>
#include <QLocale>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

QString productName()
{
    return u"Halvenmark"_s;
}

struct StepKind {
    QString label;
    QString state;
};

// The label and state word of a step, by the event that moved it.
std::optional<StepKind> stepKind(const QString &type, const QJsonObject &frame)
{
    if (type == u"agent_call") {
        return StepKind{L::t(u"מתחיל"_s, u"Starting"_s, u"Запуск"_s), u"calling"_s};
    }
    if (type == u"agent_queued" || type == u"task_created") {
        return StepKind{L::t(u"התקבל"_s, u"Accepted"_s, u"Принято"_s), u"queued"_s};
    }
    if (type == u"agent_started" || type == u"agent_progress" || type == u"agent_event") {
        return StepKind{L::t(u"בעבודה"_s, u"Working"_s, u"В работе"_s), u"running"_s};
    }
    if (type == u"agent_result") {
        const bool failed = frame.value(u"state"_s).toString() == u"failed";
        return StepKind{L::t(u"הושלם"_s, u"Completed"_s, u"Готово"_s),
                        failed ? u"failed"_s : u"done"_s};
    }
    if (type == u"agent_failed" || type == u"task_failed") {
        return StepKind{L::t(u"דורש תשומת לב"_s, u"Needs attention"_s, u"Требует внимания"_s),
                        u"failed"_s};
    }
    if (type == u"agent_merged") {
        return StepKind{L::t(u"חזר לשיחה"_s, u"Returned to voice"_s, u"Вернулось в разговор"_s),
                        u"done"_s};
    }
    return std::nullopt;
}

QString idText(const QJsonValue &v)
{
    return v.isDouble() ? QString::number(v.toInteger()) : v.toString();
}

} // namespace

void Call::absorb(const QJsonObject &frame)
{
    const QString type = frame.value(u"type"_s).toString();
    if (type == u"ready") {
        m_ready = true;
        m_attempt = 0;
        setPhase(Phase::Listening);
        const QString voice = frame.value(u"voice"_s).toString();
        m_activeVoice = voice.isEmpty() ? m_voice : voice;
        emit settingsChanged();
        const QString provider = frame.value(u"provider"_s).toString(m_provider);
        m_audio->setOpenAI(provider == u"openai");
        traceNote(u"SERVER"_s, {}, providerLabel() + u" connected"_s);
        drainMicrophone();
    } else if (type == u"audio") {
        m_audio->play(QByteArray::fromBase64(frame.value(u"data"_s).toString().toLatin1()));
        m_awaitingReply = false;
        refreshPhase();
    } else if (type == u"input_activity") {
        const QJsonValue active = frame.value(u"active"_s);
        m_inputActive = active.toBool(false);
        m_awaitingReply = !m_inputActive;
        if (m_inputActive) {
            m_heard.clear();
            closeLine(u"user"_s);
            streamLine(u"user"_s, {}, false);
        }
        refreshPhase();
    } else if (type == u"user_text") {
        const QString text = frame.value(u"text"_s).toString();
        const bool replace = frame.value(u"replace"_s).toBool(false);
        m_heard = replace ? text : m_heard + text;
        streamLine(u"user"_s, text, replace);
    } else if (type == u"turn_started") {
        m_gate.reset();
        m_said.clear();
        closeLine(u"assistant"_s);
        emit transcriptChanged();
    } else if (type == u"bot_text") {
        const QString text = frame.value(u"text"_s).toString();
        m_said += text;
        streamLine(u"assistant"_s, text, false);
    } else if (type == u"interrupted") {
        m_audio->flush();
        m_gate.reset(); // the user has the floor; a held candidate belongs to the old reply
        m_said.clear();
        emit transcriptChanged();
        refreshPhase();
    } else if (type == u"turn_complete" || type == u"generation_complete") {
        refreshPhase();
        sendStats();
    } else if (type == u"volume") {
        m_speaker = frame.value(u"level"_s).toInt(100);
        m_audio->setVolume(std::clamp(m_speaker, 0, 300) / 100.0);
        emit settingsChanged();
    } else if (type == u"resume_handle") {
        m_resume = frame.value(u"handle"_s).toString();
    } else if (type == u"web_search_started") {
        m_webSearches.insert(idText(frame.value(u"call_id"_s)));
        emit workChanged();
    } else if (type == u"web_search_finished" || type == u"web_search_failed") {
        m_webSearches.remove(idText(frame.value(u"call_id"_s)));
        emit workChanged();
    } else if (type.startsWith(u"fast_response_")) {
        noteFast(frame);
    } else if (type.startsWith(u"agent_") || type.startsWith(u"task_")) {
        note(frame);
    } else if (type == u"error") {
        const QString code = frame.value(u"error"_s).toString(u"unknown"_s);
        const QString detail = frame.value(u"detail"_s).toString();
        traceNote(u"WARN"_s, {}, detail.isEmpty() ? code : code + u": "_s + detail);
        if (frame.value(u"fatal"_s).toBool(false) || code == u"voice_key_missing") {
            fail(!detail.isEmpty() ? detail
                                   : L::t(u"השיחה אינה זמינה. אפשר להתחיל שיחה חדשה."_s,
                                          u"The call is unavailable. You can start a new call."_s,
                                          u"Звонок недоступен. Можно начать новый звонок."_s));
        }
    } else if (type == u"closed") {
        if (frame.value(u"reason"_s).toString() == u"session_rotate" && isActive() && !m_ending) {
            reconnect();
        } else {
            m_ending = true;
            stopWire();
            teardownAudio();
            if (isActive()) {
                setPhase(Phase::Idle);
            }
        }
    }
}

void Call::note(const QJsonObject &frame)
{
    const QString type = frame.value(u"type"_s).toString();
    const auto kind = stepKind(type, frame);
    if (!kind) {
        return;
    }
    QString id;
    for (const QLatin1StringView key : {"call_id"_L1, "job_id"_L1, "task_id"_L1}) {
        if (frame.contains(key)) {
            id = idText(frame.value(key));
            break;
        }
    }
    auto it = std::find_if(m_steps.begin(), m_steps.end(),
                           [&](const CallTypes::Step &s) { return s.id == id; });
    if (it == m_steps.end()) {
        m_steps.append({id, productName(), {}, {}, {}, {}, 0});
        it = m_steps.end() - 1;
    }
    const QString title = frame.value(u"title"_s).toString(frame.value(u"text"_s).toString());
    it->title = title.isEmpty() ? kind->label : title;
    it->state = kind->state;
    it->changedAt = m_clock.uptime();
    if (frame.contains(u"detail"_s)) {
        it->detail = frame.value(u"detail"_s).toString();
    }
    if (frame.contains(u"job_id"_s)) {
        it->jobID = idText(frame.value(u"job_id"_s));
    }
    if (frame.contains(u"task_id"_s)) {
        it->taskID = idText(frame.value(u"task_id"_s));
    }
    emit workChanged();

    const bool tool =
        type.startsWith(u"tool_") || frame.value(u"event_type"_s).toString().startsWith(u"tool_");
    const QString tag = tool ? u"TOOL"_s : type == u"agent_merged" ? u"DONE"_s : u"SERVER"_s;
    QString text = it->title;
    if (type == u"agent_event") {
        text += u" ["_s + idText(frame.value(u"event_id"_s)) + u" "_s +
                frame.value(u"event_type"_s).toString() + u"]"_s;
    }
    traceNote(tag, tool ? u"task:"_s + id : QString(), text);
}

void Call::noteFast(const QJsonObject &frame)
{
    const QString type = frame.value(u"type"_s).toString();
    const QString id = idText(frame.value(u"call_id"_s));
    auto it = std::find_if(m_fastAnswers.begin(), m_fastAnswers.end(),
                           [&](const CallTypes::FastAnswer &f) { return f.id == id; });
    if (type == u"fast_response_started") {
        CallTypes::FastAnswer answer;
        answer.id = id;
        answer.query = frame.value(u"query"_s).toString();
        answer.model = frame.value(u"model"_s).toString(u"gpt-6-luna"_s);
        answer.effort = frame.value(u"effort"_s).toString();
        answer.latencyMS = frame.value(u"latency_ms"_s).toInt();
        answer.state = u"running"_s;
        answer.stage = u"starting"_s;
        answer.startedAt = m_clock.uptime();
        if (it != m_fastAnswers.end()) {
            *it = answer;
        } else {
            m_fastAnswers.append(answer);
            it = m_fastAnswers.end() - 1;
        }
    } else if (it == m_fastAnswers.end()) {
        return; // an answer we never saw start
    } else if (type == u"fast_response_progress") {
        it->stage = frame.value(u"stage"_s).toString(it->stage);
        if (frame.contains(u"queries"_s)) {
            it->queries.clear();
            for (const QJsonValue &q : frame.value(u"queries"_s).toArray()) {
                it->queries.append(q.toString());
            }
        }
        it->backup = frame.value(u"backup"_s).toString(it->backup);
        const QJsonObject source = frame.value(u"source"_s).toObject();
        if (!source.isEmpty()) {
            it->sources.append(
                {source.value(u"title"_s).toString(), source.value(u"url"_s).toString()});
        }
    } else if (type == u"fast_response_finished") {
        it->answer = frame.value(u"answer"_s).toString();
        if (frame.contains(u"sources"_s)) {
            it->sources.clear();
            for (const QJsonValue &v : frame.value(u"sources"_s).toArray()) {
                const QJsonObject s = v.toObject();
                it->sources.append({s.value(u"title"_s).toString(), s.value(u"url"_s).toString()});
            }
        }
        it->state = u"done"_s;
        it->finishedAt = m_clock.uptime();
        it->handedToAgent = frame.value(u"route"_s).toString() == u"agent";
    } else if (type == u"fast_response_failed") {
        it->state = u"failed"_s;
        it->error = frame.value(u"detail"_s).toString(frame.value(u"error"_s).toString());
        traceNote(u"WARN"_s, {}, it->error);
    }
    emit workChanged();
    traceNote(u"FAST"_s, u"fast:"_s + id, it->query + u" · "_s + it->state);
}

void Call::traceNote(const QString &tag, const QString &id, const QString &text)
{
    if (!id.isEmpty()) {
        for (CallTypes::Event &e : m_trace) {
            if (e.id == id) {
                e.text = text;
                emit traceChanged();
                return;
            }
        }
    }
    m_trace.append(
        {id.isEmpty() ? u"e"_s + QString::number(m_trace.size()) : id, m_clock.uptime(), tag,
         text});
    emit traceChanged();
}

void Call::streamLine(const QString &role, const QString &text, bool replace)
{
    QString &open = role == u"user" ? m_userLineID : m_botLineID;
    if (open.isEmpty()) {
        open = u"line-"_s + QString::number(++m_lineSerial);
        m_lines.append({open, role, {}});
    }
    for (CallTypes::Line &line : m_lines) {
        if (line.id == open) {
            line.text = replace ? text : line.text + text;
            break;
        }
    }
    emit transcriptChanged();
}

void Call::closeLine(const QString &role)
{
    (role == u"user" ? m_userLineID : m_botLineID).clear();
}

QString Call::providerLabel() const
{
    if (m_provider == u"openai") {
        return u"GPT-Live · Stone"_s;
    }
    return u"Gemini Live · "_s + (m_activeVoice.isEmpty() ? m_voice : m_activeVoice);
}

QString Call::languageLabel() const
{
    if (m_language.isEmpty() || m_language == u"auto") {
        return L::t(u"לפי שפת האפליקציה"_s, u"Follow app language"_s, u"Как в приложении"_s);
    }
    const QLocale locale(m_language);
    if (locale.language() == QLocale::C || m_language.size() > 3) {
        return m_language; // already a name, such as "English"
    }
    return locale.nativeLanguageName();
}

QVariantList Call::lineList() const
{
    QVariantList list;
    for (const auto &l : m_lines) {
        list.append(l.toMap());
    }
    return list;
}

QVariantList Call::stepList() const
{
    QVariantList list;
    for (const auto &s : m_steps) {
        list.append(s.toMap());
    }
    return list;
}

QVariantList Call::fastAnswerList() const
{
    QVariantList list;
    for (const auto &f : m_fastAnswers) {
        list.append(f.toMap());
    }
    return list;
}

QVariantList Call::traceList() const
{
    QVariantList list;
    for (const auto &e : m_trace) {
        list.append(e.toMap());
    }
    return list;
}
