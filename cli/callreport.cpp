#include "callreport.h"

#include "console.h"
#include "terminaltext.h"

#include "text/l.h"
#include "voice/call.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>

#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Server texts reach the terminal only made safe, JSON included: a C1 control character
// survives JSON escaping.
QJsonValue safe(const QJsonValue &value)
{
    if (value.isString())
        return TerminalText::safe(value.toString());
    if (value.isArray()) {
        QJsonArray out;
        for (const QJsonValue &v : value.toArray())
            out.append(safe(v));
        return out;
    }
    if (value.isObject()) {
        QJsonObject out;
        const QJsonObject in = value.toObject();
        for (auto it = in.begin(); it != in.end(); ++it)
            out.insert(it.key(), safe(it.value()));
        return out;
    }
    return value;
}

void jsonLine(const QString &key, const QJsonValue &value)
{
    Console::out(QString::fromUtf8(
        QJsonDocument(QJsonObject{{key, safe(value)}}).toJson(QJsonDocument::Compact)));
}

int columns()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 10)
        return size.ws_col;
    return 80;
}

QString clipped(const QString &text, int width)
{
    return text.size() < width ? text : text.left(width - 2) + u'…';
}

QString roleLabel(const QString &role)
{
    return role == u"user" ? L::t(u"את/ה"_s, u"You"_s, u"Вы"_s)
                           : L::t(u"הסוכן"_s, u"Agent"_s, u"Агент"_s);
}

// The phase as the user reads it.
QString phaseLabel(Call::Phase phase)
{
    switch (phase) {
    case Call::Phase::Failed:
        return L::t(u"נכשלה"_s, u"failed"_s, u"сбой"_s);
    case Call::Phase::Connecting:
        return L::t(u"מתחבר"_s, u"connecting"_s, u"соединение"_s);
    case Call::Phase::Listening:
        return L::t(u"מקשיב"_s, u"listening"_s, u"слушает"_s);
    case Call::Phase::Hearing:
        return L::t(u"שומע אותך"_s, u"hearing you"_s, u"слышит вас"_s);
    case Call::Phase::Thinking:
        return L::t(u"חושב"_s, u"thinking"_s, u"думает"_s);
    case Call::Phase::Speaking:
        return L::t(u"מדבר"_s, u"speaking"_s, u"говорит"_s);
    case Call::Phase::Reconnecting:
        return L::t(u"מתחבר מחדש"_s, u"reconnecting"_s, u"переподключение"_s);
    case Call::Phase::Idle:
        break;
    }
    return L::t(u"השיחה הסתיימה"_s, u"call ended"_s, u"звонок завершён"_s);
}

} // namespace

CallReport::CallReport(Call *call, Mode mode, QObject *parent)
    : QObject(parent)
    , m_call(call)
    , m_mode(mode)
{
    // What was on screen before the call (the journal) is not news.
    for (const CallTypes::Line &line : call->lines())
        m_shown.insert(u"line:"_s + line.id, line.text);
    for (const CallTypes::Event &event : call->events())
        m_shown.insert(u"trace:"_s + event.id, event.text);
    connect(call, &Call::phaseChanged, this, &CallReport::phase);
    if (mode == Mode::Json) {
        connect(call, &Call::transcriptChanged, this, [this] { lines(true); });
        connect(call, &Call::workChanged, this, &CallReport::work);
        connect(call, &Call::traceChanged, this, &CallReport::trace);
    }
}

QString CallReport::phaseName(int phase)
{
    return QString::fromLatin1(QMetaEnum::fromType<Call::Phase>().valueToKey(phase)).toLower();
}

QString CallReport::meter(double level)
{
    const int cells = std::clamp(int(std::lround(std::clamp(level, 0.0, 1.0) * 10)), 0, 10);
    return QString(cells, u'▮') + QString(10 - cells, u'▯');
}

void CallReport::phase()
{
    const QString name = phaseName(int(m_call->phase()));
    if (m_mode == Mode::Json) {
        QJsonObject out{{u"phase"_s, name}};
        if (m_call->phase() == Call::Phase::Failed)
            out.insert(u"message"_s, m_call->failure());
        Console::out(
            QString::fromUtf8(QJsonDocument(safe(out).toObject()).toJson(QJsonDocument::Compact)));
    } else if (m_mode == Mode::Plain) {
        // A phase change closes what was being said: the lines so far are final enough.
        lines(false);
        Console::out(u"["_s + phaseLabel(m_call->phase()) + u"]"_s);
    }
}

void CallReport::lines(bool json)
{
    for (const CallTypes::Line &line : m_call->lines()) {
        const QString key = u"line:"_s + line.id;
        if (line.text.isEmpty() || m_shown.value(key) == line.text)
            continue;
        m_shown.insert(key, line.text);
        if (json)
            jsonLine(
                u"line"_s,
                QJsonObject{{u"id"_s, line.id}, {u"role"_s, line.role}, {u"text"_s, line.text}});
        else
            Console::out(roleLabel(line.role) + u": "_s + TerminalText::safe(line.text));
    }
}

void CallReport::work()
{
    for (const CallTypes::Step &step : m_call->steps()) {
        const QString key = u"step:"_s + step.id;
        const QString shown = step.title + u'\n' + step.state + u'\n' + step.detail;
        if (m_shown.value(key) == shown)
            continue;
        m_shown.insert(key, shown);
        jsonLine(u"step"_s, QJsonObject{{u"id"_s, step.id},
                                        {u"title"_s, step.title},
                                        {u"state"_s, step.state},
                                        {u"detail"_s, step.detail}});
    }
    for (const CallTypes::FastAnswer &fast : m_call->fastAnswers()) {
        const QString key = u"fast:"_s + fast.id;
        const QString shown = fast.state + u'\n' + fast.stage + u'\n' + fast.answer;
        if (m_shown.value(key) == shown)
            continue;
        m_shown.insert(key, shown);
        QJsonArray sources;
        for (const CallTypes::Source &s : fast.sources)
            sources.append(QJsonObject{{u"title"_s, s.title}, {u"url"_s, s.url}});
        jsonLine(u"fast"_s, QJsonObject{{u"id"_s, fast.id},
                                        {u"query"_s, fast.query},
                                        {u"state"_s, fast.state},
                                        {u"stage"_s, fast.stage},
                                        {u"answer"_s, fast.answer},
                                        {u"error"_s, fast.error},
                                        {u"sources"_s, sources}});
    }
}

void CallReport::trace()
{
    for (const CallTypes::Event &event : m_call->events()) {
        const QString key = u"trace:"_s + event.id;
        if (m_shown.contains(key) && m_shown.value(key) == event.text)
            continue;
        m_shown.insert(key, event.text);
        jsonLine(u"trace"_s, QJsonObject{{u"tag"_s, event.tag}, {u"text"_s, event.text}});
    }
}

void CallReport::redraw()
{
    if (m_mode != Mode::Live)
        return;
    const int width = columns();
    QStringList block;
    block << clipped(
        u"● "_s + phaseLabel(m_call->phase()) + u"  "_s + meter(m_call->level()) +
            u"  %1 dB (%2)"_s.arg(std::lround(m_call->microphoneDB()))
                .arg(std::lround(m_call->effectiveThresholdDB())) +
            (m_call->muted() ? L::t(u"  מושתק"_s, u"  muted"_s, u"  без звука"_s) : QString()),
        width);
    block << clipped(u"  "_s + roleLabel(u"user"_s) + u": "_s + TerminalText::safe(m_call->heard()),
                     width);
    block << clipped(
        u"  "_s + roleLabel(u"assistant"_s) + u": "_s + TerminalText::safe(m_call->said()), width);
    QStringList steps;
    for (const CallTypes::Step &step : m_call->steps())
        steps << TerminalText::safe(step.title) + u" ("_s + TerminalText::safe(step.state) + u")"_s;
    block << clipped(
        u"  "_s + L::t(u"משימות"_s, u"Steps"_s, u"Шаги"_s) + u": "_s + steps.join(u" · "_s), width);
    QString out = m_drawn > 0 ? u"\x1b[%1F"_s.arg(m_drawn) : QString();
    for (const QString &line : block)
        out += u"\x1b[2K"_s + line + u'\n';
    Console::write(out);
    m_drawn = int(block.size());
}

void CallReport::finish()
{
    if (m_mode == Mode::Live) {
        redraw();
    } else if (m_mode == Mode::Plain) {
        lines(false);
    }
}
