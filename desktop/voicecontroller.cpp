#include "voicecontroller.h"

#include "chat/voice/voiceplayer.h"
#include "chatcontroller.h"
#include "platform/appdata.h"
#include "platform/clock.h"
#include "platform/sleeper.h"
#include "platform/voiceoutput.h"

#include <cmath>

using namespace Qt::StringLiterals;

VoiceController::VoiceController(Make make, QObject *parent)
    : QObject(parent)
    , m_make(std::move(make))
{}

VoiceController::Make VoiceController::platform(Api &api, const Ports &ports)
{
    return [&api, ports](QObject *parent) {
        VoiceOutput *output = VoiceOutput::platform();
        VoicePlayer::Dependencies deps;
        deps.output = output;
        deps.sleeper = &ports.sleeper;
        deps.clock = [&clock = ports.clock] { return clock.uptime(); };
        deps.cache = AppData::path(u"voice-cache"_s);
        auto *player = new VoicePlayer(api, deps, parent);
        output->setParent(player); // goes after the player is done with it
        return player;
    };
}

VoicePlayer *VoiceController::player()
{
    if (!m_player) {
        m_player = m_make(this);
        connect(m_player, &VoicePlayer::phaseChanged, this, &VoiceController::stateChanged);
        connect(m_player, &VoicePlayer::activeChanged, this, &VoiceController::stateChanged);
        connect(m_player, &VoicePlayer::partLanded, this, &VoiceController::progressChanged);
        connect(m_player, &VoicePlayer::progressChanged, this, &VoiceController::progressChanged);
        connect(m_player, &VoicePlayer::rateChanged, this, &VoiceController::rateChanged);
    }
    return m_player;
}

void VoiceController::use(Make make)
{
    if (m_player) {
        m_player->stop();
        delete m_player;
        m_player = nullptr;
    }
    m_make = std::move(make);
    emit stateChanged();
    emit progressChanged();
    emit rateChanged();
}

QString VoiceController::key() const
{
    if (!m_player)
        return {};
    if (!m_player->activeFile().isEmpty())
        return u"file:"_s + m_player->activeFile();
    return m_player->active() > 0 ? u"seq:"_s + QString::number(m_player->active()) : QString();
}

ChatController *VoiceController::chat() const
{
    return m_player && m_player->active() > 0 ? m_chat.data() : nullptr;
}

VoiceController::State VoiceController::state() const
{
    if (!m_player)
        return Idle;
    switch (m_player->phase()) {
    case VoicePlayer::Phase::Idle:
        return Idle;
    case VoicePlayer::Phase::Loading:
        return Preparing;
    case VoicePlayer::Phase::Playing:
        return Playing;
    case VoicePlayer::Phase::Paused:
        return Paused;
    case VoicePlayer::Phase::Failed:
        return Failed;
    }
    return Idle;
}

double VoiceController::elapsed() const
{
    return m_player ? m_player->elapsed() : 0;
}

double VoiceController::total() const
{
    return m_player ? m_player->total() : 0;
}

QString VoiceController::timeText() const
{
    const double whole = total();
    const double at = whole > 0 ? std::min(elapsed(), whole) : elapsed();
    return whole > 0 ? clock(at) + u" / "_s + clock(whole) : clock(at);
}

double VoiceController::rate() const
{
    return m_player ? m_player->rate() : 1.0;
}

QString VoiceController::rateText() const
{
    return QString::number(rate()) + u"×"_s;
}

void VoiceController::toggle(const QVariantMap &source, ChatController *chat)
{
    VoicePlayer *p = player();
    const QString wanted = source.value(u"key"_s).toString();
    if (wanted.isEmpty())
        return;
    const bool speech = source.value(u"speech"_s).toBool();
    if (wanted == key() && (!speech || chat == m_chat)) {
        switch (p->phase()) {
        case VoicePlayer::Phase::Playing:
            p->pause();
            return;
        case VoicePlayer::Phase::Paused:
            p->resume();
            return;
        case VoicePlayer::Phase::Loading:
            p->stop();
            return; // the user gave up waiting
        default:
            break; // failed or done: start again
        }
    }
    if (speech) {
        if (!chat)
            return;
        m_chat = chat;
        p->play(source.value(u"seq"_s).toLongLong(), chat->store()->scope());
    } else {
        p->playAttachment(source.value(u"fileID"_s).toString());
    }
}

void VoiceController::seek(double seconds)
{
    if (m_player)
        m_player->seek(std::max(0.0, seconds));
}

void VoiceController::skip(double delta)
{
    if (!m_player)
        return;
    double to = std::max(0.0, elapsed() + delta);
    if (total() > 0)
        to = std::min(to, total());
    m_player->seek(to);
}

void VoiceController::cycleRate()
{
    player()->cycleRate();
}

void VoiceController::stop()
{
    if (m_player)
        m_player->stop();
}

QString VoiceController::clock(double seconds)
{
    const qint64 whole = std::isfinite(seconds) ? qint64(std::max(0.0, std::floor(seconds))) : 0;
    const qint64 h = whole / 3600, m = whole / 60 % 60, s = whole % 60;
    const QString ss = QString::number(s).rightJustified(2, u'0');
    if (h > 0)
        return u"%1:%2:%3"_s.arg(h).arg(QString::number(m).rightJustified(2, u'0'), ss);
    return u"%1:%2"_s.arg(m).arg(ss);
}
