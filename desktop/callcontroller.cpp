#include "callcontroller.h"

#include "platform/qtaudioport.h"
#include "text/l.h"
#include "text/language.h"
#include "voice/apicalllink.h"
#include "voice/calllink.h"
#include "voice/voicetuning.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// Languages offered for the call, after "auto"; the server takes the code.
const QStringList languageCodes{u"en"_s, u"he"_s, u"ru"_s, u"ar"_s, u"de"_s, u"es"_s, u"fr"_s};

QVariantMap choice(const QString &value, const QString &label)
{
    return {{u"value"_s, value}, {u"label"_s, label}};
}

} // namespace

CallController::CallController(ChatScope scope, QString account, std::unique_ptr<CallLink> link,
                               std::unique_ptr<AudioPort> port, Sleeper &sleeper,
                               const Clock &clock, VoiceTuning &tuning, QObject *parent)
    : QObject(parent)
    , m_account(std::move(account))
    , m_link(std::move(link))
    , m_port(std::move(port))
    , m_tuning(&tuning)
    , m_call(std::make_unique<Call>(scope, m_link.get(), m_port.get(), sleeper, clock, tuning))
{
    connect(m_call.get(), &Call::phaseChanged, this, &CallController::phaseChanged);
    connect(m_call.get(), &Call::meterChanged, this, &CallController::meterChanged);
    connect(m_call.get(), &Call::settingsChanged, this, [this] {
        emit volumeChanged();
        emit choicesChanged();
    });
    connect(m_call.get(), &Call::routeChanged, this, &CallController::devicesChanged);
    connect(m_tuning, &VoiceTuning::thresholdChanged, this, &CallController::thresholdChanged);
    // Texts made here follow the language at once.
    auto *language = new Language(this);
    connect(language, &Language::languageChanged, this, [this] {
        emit phaseChanged();
        emit meterChanged();
        emit choicesChanged();
        if (!m_outputs.isEmpty()) {
            refreshDevices(); // the default's name
        }
    });
    // The devices are listed when the screen opens: signing in does not wake the sound server.
}

CallController::~CallController()
{
    m_call.reset(); // before the link and the devices it uses
}

CallController *CallController::live(Api &api, ChatScope scope, QString account,
                                     const Ports &ports, QObject *parent)
{
    return new CallController(scope, std::move(account), std::make_unique<ApiCallLink>(api),
                              std::make_unique<QtAudioPort>(), ports.sleeper, ports.clock,
                              VoiceTuning::shared(), parent);
}

QString CallController::phaseText() const
{
    switch (m_call->phase()) {
    case Call::Phase::Idle:
        return L::t(u"מוכן לשיחה"_s, u"Ready to call"_s, u"Готов к звонку"_s);
    case Call::Phase::Failed:
        return L::t(u"השיחה נכשלה"_s, u"The call failed"_s, u"Звонок не удался"_s);
    case Call::Phase::Connecting:
        return L::t(u"מתחבר…"_s, u"Connecting…"_s, u"Подключение…"_s);
    case Call::Phase::Listening:
        return L::t(u"מקשיב"_s, u"Listening"_s, u"Слушает"_s);
    case Call::Phase::Hearing:
        return L::t(u"שומע אותך…"_s, u"Hearing you…"_s, u"Слышит вас…"_s);
    case Call::Phase::Thinking:
        return L::t(u"חושב…"_s, u"Thinking…"_s, u"Думает…"_s);
    case Call::Phase::Speaking:
        return L::t(u"מדבר"_s, u"Speaking"_s, u"Говорит"_s);
    case Call::Phase::Reconnecting:
        return L::t(u"מתחבר מחדש…"_s, u"Reconnecting…"_s, u"Переподключение…"_s);
    }
    return {};
}

void CallController::setVolume(int percent)
{
    if (percent != m_call->speaker()) {
        m_call->setSpeaker(percent);
    }
}

double CallController::position(double db)
{
    if (!std::isfinite(db)) {
        return 0;
    }
    return std::clamp((db + 80.0) / 80.0, 0.0, 1.0);
}

double CallController::meterLevel() const
{
    return m_call->muted() ? 0 : position(m_call->microphoneDB());
}

double CallController::meterThreshold() const
{
    return position(m_call->effectiveThresholdDB());
}

double CallController::meterEchoFloor() const
{
    const auto floor = m_call->bargeGate().echoFloor;
    return floor ? position(*floor) : -1;
}

QString CallController::meterText() const
{
    // Isolated, so that "-42 dB" keeps its order inside a Hebrew line.
    const auto db = [](double v) {
        return QChar(0x2066) + QString::number(std::lround(v)) + u" dB"_s + QChar(0x2069);
    };
    QString text = db(m_call->microphoneDB()) + u" · "_s + L::t(u"סף "_s, u"bar "_s, u"порог "_s) +
                   db(m_call->effectiveThresholdDB());
    if (const auto floor = m_call->bargeGate().echoFloor) {
        text += u" · "_s + L::t(u"הד "_s, u"echo "_s, u"эхо "_s) + db(*floor);
    }
    return text;
}

double CallController::threshold() const
{
    return m_tuning->threshold();
}

void CallController::setThreshold(double db)
{
    m_tuning->set(db);
}

QVariantList CallController::deviceList(bool input) const
{
    QVariantList list{QVariantMap{
        {u"id"_s, QString()},
        {u"name"_s, L::t(u"ברירת המחדל של המערכת"_s, u"System default"_s, u"Как в системе"_s)}}};
    if (!m_port) {
        return list;
    }
    for (const auto &d : input ? m_port->inputs() : m_port->outputs()) {
        list.append(QVariantMap{{u"id"_s, QString::fromUtf8(d.id)}, {u"name"_s, d.name}});
    }
    return list;
}

QVariantList CallController::inputs() const
{
    return m_inputs;
}

QVariantList CallController::outputs() const
{
    return m_outputs;
}

QString CallController::inputId() const
{
    return QString::fromUtf8(m_call->chosenInput());
}

QString CallController::outputId() const
{
    return QString::fromUtf8(m_call->chosenOutput());
}

void CallController::refreshDevices()
{
    m_inputs = deviceList(true);
    m_outputs = deviceList(false);
    emit devicesChanged();
}

QVariantList CallController::languages() const
{
    QVariantList list{choice(
        u"auto"_s, L::t(u"לפי שפת האפליקציה"_s, u"Follow app language"_s, u"Как в приложении"_s))};
    for (const QString &code : languageCodes) {
        QString name = QLocale(code).nativeLanguageName();
        if (!name.isEmpty()) {
            name[0] = name[0].toUpper();
        }
        list.append(choice(code, name));
    }
    // A value chosen elsewhere (a name such as "English") stays selectable as it is.
    const QString current = m_call->language();
    if (current != u"auto" && !languageCodes.contains(current)) {
        list.append(choice(current, m_call->languageLabel()));
    }
    return list;
}

QVariantList CallController::providers() const
{
    const QString voice = m_call->activeVoice().isEmpty() ? m_call->voice() : m_call->activeVoice();
    return {choice(u"openai"_s, u"GPT-Live · Stone"_s),
            choice(u"gemini"_s, u"Gemini Live · "_s + voice)};
}

void CallController::open()
{
    m_call->checkAvailability(m_account);
}

void CallController::recheck()
{
    if (!m_call->availabilityChecked() && !m_call->isActive()) {
        m_call->checkAvailability(m_account);
    }
}

void CallController::start()
{
    if (!m_call->isActive()) {
        m_call->start();
    }
}

void CallController::hangUp()
{
    if (m_call->isActive()) {
        m_call->hangUp();
    }
}

void CallController::toggleMute()
{
    m_call->setMuted(!m_call->muted());
    emit meterChanged();
}

void CallController::chooseInput(const QString &id)
{
    const QByteArray input = id.toUtf8();
    if (input != m_call->chosenInput()) {
        m_call->chooseDevices(input, m_call->chosenOutput());
    }
}

void CallController::chooseOutput(const QString &id)
{
    const QByteArray output = id.toUtf8();
    if (output != m_call->chosenOutput()) {
        m_call->chooseDevices(m_call->chosenInput(), output);
    }
}

void CallController::choose(const QString &voice, const QString &language, const QString &provider)
{
    if (!m_saving) {
        saveChoice(voice, language, provider);
    }
}

QCoro::Task<> CallController::saveChoice(QString voice, QString language, QString provider)
{
    QPointer<CallController> self(this);
    m_saving = true;
    emit savingChanged();
    co_await m_call->choose(voice, language, provider);
    if (!self) {
        co_return;
    }
    m_saving = false;
    emit savingChanged();
}

void CallController::consolidateMemory()
{
    if (!m_call->memoryBusy()) {
        m_call->consolidateMemory();
    }
}
