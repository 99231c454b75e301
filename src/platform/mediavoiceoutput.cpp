#include "mediavoiceoutput.h"

#include <QAudioDevice>
#include <QAudioOutput>
#include <QMediaDevices>
#include <QMediaPlayer>
#include <QUrl>

#include <cmath>

MediaVoiceOutput::MediaVoiceOutput(QObject *parent)
    : VoiceOutput(parent)
    , m_player(new QMediaPlayer(this))
    , m_output(new QAudioOutput(this))
{
    m_player->setAudioOutput(m_output);
    connect(m_player, &QMediaPlayer::mediaStatusChanged, this, [this](QMediaPlayer::MediaStatus s) {
        if (s == QMediaPlayer::LoadedMedia && m_startAt >= 0) {
            // A position set before the file is loaded is lost: set it now.
            m_player->setPosition(m_startAt);
            m_startAt = -1;
            m_player->play();
        } else if (s == QMediaPlayer::EndOfMedia) {
            emit ended();
        } else if (s == QMediaPlayer::InvalidMedia) {
            emit failed(m_player->errorString());
        }
    });
    connect(m_player, &QMediaPlayer::errorOccurred, this,
            [this](QMediaPlayer::Error, const QString &why) { emit failed(why); });
}

VoiceOutput *VoiceOutput::platform(QObject *parent)
{
    return new MediaVoiceOutput(parent);
}

void MediaVoiceOutput::play(const QString &file, double from, double rate)
{
    // Qt 6.4's FFmpeg player writes to a device that is not there when the machine has no
    // sound output, and crashes: say so instead.
    if (QMediaDevices::defaultAudioOutput().isNull()) {
        QMetaObject::invokeMethod(
            this, [this] { emit failed(QStringLiteral("no sound output device")); },
            Qt::QueuedConnection);
        return;
    }
    m_player->stop();
    m_player->setPlaybackRate(rate);
    m_startAt = std::llround(std::max(0.0, from) * 1000);
    m_player->setSource(QUrl::fromLocalFile(file));
    if (m_player->mediaStatus() == QMediaPlayer::LoadedMedia) {
        m_player->setPosition(m_startAt);
        m_startAt = -1;
        m_player->play();
    }
}

void MediaVoiceOutput::pause()
{
    m_player->pause();
}

void MediaVoiceOutput::resume()
{
    m_player->play();
}

void MediaVoiceOutput::stop()
{
    m_startAt = -1;
    m_player->stop();
}

void MediaVoiceOutput::setRate(double rate)
{
    m_player->setPlaybackRate(rate);
}

double MediaVoiceOutput::position() const
{
    return double(m_player->position()) / 1000.0;
}
