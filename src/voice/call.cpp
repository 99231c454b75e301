#include "voice/call.h"
#include "voice/callendpoints.h"
#include "voice/voicelog.h"

#include "platform/audioport.h"
#include "platform/clock.h"
#include "platform/sleeper.h"
#include "text/l.h"
#include "voice/callaudio.h"
#include "voice/calllink.h"
#include "voice/voicetuning.h"

#include <QJsonDocument>
#include <QLoggingCategory>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// Before "ready" only the newest few chunks wait; after it, at most a second of backlog.
constexpr int chunksBeforeReady = 3;
constexpr qsizetype backlogBytes = 48000;
constexpr int maxAttempts = 5;

} // namespace

Call::Call(ChatScope scope, CallLink *link, AudioPort *port, Sleeper &sleeper, const Clock &clock,
           VoiceTuning &tuning, QObject *parent)
    : QObject(parent)
    , m_scope(scope)
    , m_link(link)
    , m_sleeper(&sleeper)
    , m_clock(clock)
    , m_tuning(&tuning)
    , m_audio(std::make_unique<CallAudio>(port, sleeper, clock))
    , m_port(port)
{
    connect(m_link, &CallLink::received, this, &Call::received);
    connect(m_link, &CallLink::dropped, this, [this] {
        if (!m_ending && isActive()) {
            reconnect();
        }
    });
    connect(m_audio.get(), &CallAudio::chunk, this, &Call::push);
    if (port) {
        connect(port, &AudioPort::devicesChanged, this, [this] { devicesChanged(); });
    }
    connect(m_audio.get(), &CallAudio::traced, this,
            [this](const QString &text) { traceNote(u"AUDIO"_s, {}, text); });
    connect(m_audio.get(), &CallAudio::meter, this, [this](double level) {
        if (level != m_level) {
            m_level = level;
            emit meterChanged();
        }
        refreshPhase();
    });
    connect(m_audio.get(), &CallAudio::stalled, this, [this] {
        if (isActive()) {
            fail(L::t(u"המיקרופון הפסיק להגיב"_s, u"The microphone stopped responding"_s,
                      u"Микрофон перестал отвечать"_s));
        }
    });
}

Call::~Call()
{
    m_ending = true;
    stopWire();
    teardownAudio();
}

bool Call::isActive(Phase phase)
{
    return phase != Phase::Idle && phase != Phase::Failed;
}

void Call::setPhase(Phase phase)
{
    if (phase != m_phase) {
        m_phase = phase;
        emit phaseChanged();
    }
}

void Call::setNotice(const QString &text)
{
    if (text != m_notice) {
        m_notice = text;
        emit noticeChanged();
    }
}

void Call::setMuted(bool muted)
{
    if (muted != m_muted) {
        m_muted = muted;
        emit settingsChanged();
    }
}

QJsonObject Call::scopeFields() const
{
    QJsonObject fields;
    if (const auto project = m_scope.projectID()) {
        fields.insert(u"conversation_id"_s, m_scope.conversationID());
        fields.insert(u"project_id"_s, *project);
    }
    return fields;
}

QCoro::Task<> Call::start()
{
    if (isActive()) {
        co_return;
    }
    // The desktop asks for microphone access when the device opens; a refusal shows up
    // as a device that cannot start. No hands-free pilot exists here to stop.
    m_ending = false;
    m_waitingToReconnect = false;
    m_ready = false;
    m_inputActive = false;
    m_awaitingReply = false;
    m_attempt = 0;
    m_resume.clear();
    m_pending.clear();
    m_webSearches.clear();
    m_userLineID.clear();
    m_botLineID.clear();
    m_gate.reset();
    m_failure.clear();
    m_failureCode.clear();
    setNotice({});
    setPhase(Phase::Connecting);
    traceNote(u"AUDIO"_s, {}, u"Opening live conversation"_s);
    applyRoute(true);
    if (!m_audio->start(false)) {
        qCWarning(lcCall) << "audio did not start:" << m_audio->error();
        teardownAudio();
        fail(L::t(u"לא ניתן לפתוח את השיחה"_s, u"Could not open the call"_s,
                  u"Не удалось начать звонок"_s));
        co_return;
    }
    m_audio->watchLevel();
    readRoute();
    co_await connectWire();
}

QCoro::Task<> Call::connectWire()
{
    QPointer<Call> self(this);
    if (!m_link) {
        fail(L::t(u"אין חיבור"_s, u"No connection"_s, u"Нет соединения"_s));
        co_return;
    }
    const QString path = m_scope.path(CallEndpoints::socket(m_provider, L::current()));
    const quint64 generation = ++m_wireGeneration;
    const bool opened = co_await m_link->open(path);
    if (!self || generation != m_wireGeneration || m_ending) {
        co_return; // hung up or replaced while opening
    }
    if (!opened) {
        // Like a socket that fails at once: the same backoff, then "Call dropped".
        if (isActive()) {
            reconnect();
        }
        co_return;
    }
    QJsonObject hello = scopeFields();
    hello.insert(u"type"_s, u"hello"_s);
    hello.insert(u"resume"_s, m_resume);
    const bool sent = co_await send(hello);
    if (!self) {
        co_return;
    }
    if (!sent && generation == m_wireGeneration && !m_ending && isActive()) {
        reconnect();
    }
}

QCoro::Task<bool> Call::send(QJsonObject frame)
{
    if (!m_link || !m_link->isOpen()) {
        co_return false;
    }
    const QByteArray text = QJsonDocument(frame).toJson(QJsonDocument::Compact);
    const bool sent = co_await m_link->send(text);
    co_return sent;
}

void Call::received(const QByteArray &text)
{
    const QJsonDocument doc = QJsonDocument::fromJson(text);
    if (doc.isObject()) {
        absorb(doc.object());
    }
}

QCoro::Task<> Call::sendStats()
{
    QPointer<Call> self(this);
    const quint64 generation = m_wireGeneration;
    const QJsonObject playback{{u"type"_s, u"playback_stats"_s},
                               {u"underruns"_s, m_audio->underruns()},
                               {u"cushion_ms"_s, int(std::lround(m_audio->cushion() * 1000))}};
    const bool sent = co_await send(playback);
    if (!self || !sent || generation != m_wireGeneration) {
        co_return;
    }
    co_await send(gateStats());
}

QJsonObject Call::gateStats() const
{
    QJsonObject stats{{u"type"_s, u"gate_stats"_s},
                      {u"opened"_s, m_gate.opened},
                      {u"opened_while_playing"_s, m_gate.openedWhilePlaying},
                      {u"suppressed_frames"_s, m_gate.suppressedFrames},
                      {u"threshold_db"_s, m_gate.thresholdDB},
                      {u"effective_db"_s, m_effectiveThresholdDB},
                      {u"route"_s, m_route},
                      {u"speaker_percent"_s, m_speaker}};
    if (m_gate.echoFloor) {
        stats.insert(u"echo_floor_db"_s, *m_gate.echoFloor);
    }
    return stats;
}

QByteArray Call::processMicrophone(bool playing, double now, const QByteArray &data)
{
    QByteArray out;
    if (m_muted) {
        m_gate.reset();
        m_microphoneDB = -80;
        m_microphoneSuppressed = false;
        out = QByteArray(data.size(), '\0');
    } else {
        m_gate.thresholdDB = m_tuning->threshold();
        out = m_gate.process(data, playing, now).pcm;
        m_microphoneDB = m_gate.inputLevelDB;
        m_microphoneSuppressed = m_gate.suppressed;
    }
    m_effectiveThresholdDB = std::max(CallBargeGate::clampedThreshold(m_gate.thresholdDB),
                                      m_gate.echoFloor ? *m_gate.echoFloor + 9 : -71.0);
    emit meterChanged();
    return out;
}

void Call::push(const QByteArray &data)
{
    if (!isActive()) {
        return;
    }
    const QByteArray out = processMicrophone(m_audio->busy(), m_clock.uptime(), data);
    if (out.isEmpty()) {
        return;
    }
    m_pending.append(out);
    if (m_ready && m_link && m_link->isOpen()) {
        drainMicrophone();
    } else {
        while (m_pending.size() > chunksBeforeReady) {
            m_pending.removeFirst();
        }
    }
}

void Call::drainMicrophone()
{
    if (!m_ready || !m_link || !m_link->isOpen()) {
        return;
    }
    qsizetype total = 0;
    for (const QByteArray &chunk : std::as_const(m_pending)) {
        total += chunk.size();
    }
    while (m_pending.size() > 1 && total > backlogBytes) {
        total -= m_pending.takeFirst().size();
    }
    if (m_senderGeneration != m_wireGeneration && !m_pending.isEmpty()) {
        sendPending(m_wireGeneration);
    }
}

QCoro::Task<> Call::sendPending(quint64 generation)
{
    QPointer<Call> self(this);
    m_senderGeneration = generation;
    while (!m_pending.isEmpty() && generation == m_wireGeneration && !m_ending) {
        const QByteArray chunk = m_pending.takeFirst();
        const QJsonObject frame{{u"type"_s, u"audio"_s},
                                {u"data"_s, QString::fromLatin1(chunk.toBase64())}};
        const bool sent = co_await send(frame);
        if (!self) {
            co_return;
        }
        if (!sent) {
            if (m_senderGeneration == generation) {
                m_senderGeneration = 0;
            }
            if (generation == m_wireGeneration && !m_ending && isActive()) {
                reconnect();
            }
            co_return;
        }
    }
    if (m_senderGeneration == generation) {
        m_senderGeneration = 0;
    }
}

void Call::refreshPhase()
{
    if (!isActive() || !m_ready) {
        return;
    }
    if (m_inputActive) {
        setPhase(Phase::Hearing);
    } else if (m_audio->busy()) {
        setPhase(Phase::Speaking);
    } else if (m_awaitingReply) {
        setPhase(Phase::Thinking);
    } else {
        setPhase(Phase::Listening);
    }
}

QCoro::Task<> Call::reconnect()
{
    if (m_waitingToReconnect) {
        co_return; // one wait at a time
    }
    stopWire();
    if (m_attempt >= maxAttempts) {
        fail(L::t(u"השיחה נותקה"_s, u"Call dropped"_s, u"Звонок прервался"_s),
             u"reconnect_exhausted"_s);
        co_return;
    }
    setPhase(Phase::Reconnecting);
    const double delay = std::min(0.45 * std::pow(2.0, m_attempt), 5.0);
    m_attempt += 1;
    m_waitingToReconnect = true;
    const quint64 generation = m_wireGeneration;
    QPointer<Call> self(this);
    co_await m_sleeper->sleep(std::chrono::milliseconds(std::lround(delay * 1000)));
    if (!self) {
        co_return;
    }
    if (generation != m_wireGeneration) {
        co_return; // hung up (and maybe called again) meanwhile
    }
    m_waitingToReconnect = false;
    if (m_phase != Phase::Reconnecting || m_ending) {
        co_return;
    }
    co_await connectWire();
}

void Call::stopWire()
{
    if (m_link) {
        m_link->close();
    }
    m_wireGeneration += 1;
    m_senderGeneration = 0;
    m_pending.clear();
    if (!m_webSearches.isEmpty()) {
        m_webSearches.clear();
        emit workChanged();
    }
    m_ready = false;
    m_inputActive = false;
    m_awaitingReply = false;
}

void Call::teardownAudio()
{
    m_audio->teardown();
}

void Call::hangUp()
{
    m_ending = true;
    traceNote(u"AUDIO"_s, {},
              QString::fromUtf8(QJsonDocument(gateStats()).toJson(QJsonDocument::Compact)));
    stopWire();
    teardownAudio();
    setPhase(Phase::Idle);
    setNotice(L::t(u"השיחה הסתיימה. משימות הרקע ממשיכות לרוץ."_s,
                   u"Call ended. Background tasks keep running."_s,
                   u"Звонок завершён. Фоновые задачи продолжают работу."_s));
}

void Call::fail(const QString &message, const QString &code)
{
    stopWire();
    teardownAudio();
    m_ending = true;
    m_failure = message;
    m_failureCode = code;
    if (m_phase == Phase::Failed) {
        emit phaseChanged(); // a new message
    }
    setPhase(Phase::Failed);
}

void Call::selectRoute(const QString &route)
{
    m_routePicked = true;
    m_route = route;
    emit routeChanged();
    applyRoute(false);
}

void Call::chooseDevices(const QByteArray &input, const QByteArray &output)
{
    m_chosenInput = input;
    m_chosenOutput = output;
    m_routePicked = true;
    m_route = output.contains("bluez") ? u"bluetooth"_s : u"speaker"_s;
    emit routeChanged();
    applyRoute(false);
}

void Call::setSpeaker(int percent)
{
    m_speaker = std::clamp(percent, 0, 300);
    m_audio->setVolume(m_speaker / 100.0);
    emit settingsChanged();
}

void Call::applyRoute(bool automatic)
{
    if (!m_port) {
        return;
    }
    if (automatic && !m_routePicked) {
        m_route = u"speaker"_s;
    }
    QByteArray input = m_chosenInput;
    QByteArray output = m_chosenOutput;
    if (m_route == u"bluetooth") {
        if (!output.contains("bluez")) {
            output.clear(); // the first headset the sound server lists
        }
        if (!isActive()) {
            m_routeDetail = L::t(u"Bluetooth יתחבר כשהשיחה תתחיל"_s,
                                 u"Bluetooth connects when the call starts"_s,
                                 u"Bluetooth подключится, когда начнётся звонок"_s);
            emit routeChanged();
            return;
        }
        for (const auto &d : m_port->outputs()) {
            if (output.isEmpty() && d.id.contains("bluez")) {
                output = d.id;
            }
        }
        for (const auto &d : m_port->inputs()) {
            if (input.isEmpty() && d.id.contains("bluez")) {
                input = d.id;
            }
        }
        if (output.isEmpty()) {
            m_routeDetail = L::t(u"חברו אוזניות Bluetooth ואז בחרו Bluetooth."_s,
                                 u"Connect a Bluetooth headset, then choose Bluetooth."_s,
                                 u"Подключите Bluetooth-гарнитуру, затем выберите Bluetooth."_s);
            emit routeChanged();
            if (automatic) {
                m_audio->setDevices({}, {}); // the headset went: the defaults carry the call
            }
            return;
        }
    }
    m_audio->setDevices(input, output);
    if (automatic) {
        return; // the devices open with the call
    }
    // A running call moves to the new devices at once.
    if (isActive() && !m_audio->start(true)) {
        fail(L::t(u"לא ניתן לפתוח את השיחה"_s, u"Could not open the call"_s,
                  u"Не удалось начать звонок"_s));
        return;
    }
    readRoute();
}

void Call::readRoute()
{
    const auto outputs = m_port->outputs();
    QString detail = outputs.isEmpty() ? QString() : outputs.first().name;
    bool headset = false;
    for (const auto &d : outputs) {
        if (!m_chosenOutput.isEmpty() && d.id == m_chosenOutput) {
            detail = d.name;
            headset = d.id.contains("bluez");
            break;
        }
        if (m_route == u"bluetooth" && d.id.contains("bluez")) {
            detail = d.name;
            headset = true;
            break;
        }
    }
    // Without the headset the reason it cannot be used stays on screen.
    if (m_route != u"bluetooth" || headset) {
        m_routeDetail = detail;
    }
    m_inputName = m_port->inputName();
    emit routeChanged();
}

QCoro::Task<> Call::devicesChanged()
{
    // A headset brings its speaker and its microphone one after the other: one reopening
    // for both.
    if (m_devicesSettling) {
        co_return;
    }
    m_devicesSettling = true;
    QPointer<Call> self(this);
    co_await m_sleeper->sleep(std::chrono::milliseconds(250));
    if (!self) {
        co_return;
    }
    m_devicesSettling = false;
    // A device that came or went may be the one in use, or the headset the route asks for:
    // the route is chosen again and a running call reopens its devices.
    if (isActive() && !m_ending) {
        applyRoute(true);
        if (!m_audio->start(true)) {
            fail(L::t(u"לא ניתן לפתוח את השיחה"_s, u"Could not open the call"_s,
                      u"Не удалось начать звонок"_s));
            co_return;
        }
        traceNote(u"AUDIO"_s, {}, u"sound devices changed; reopened"_s);
    }
    if (m_port) {
        readRoute();
    }
}
