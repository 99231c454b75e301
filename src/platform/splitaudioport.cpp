#include "platform/splitaudioport.h"

SplitAudioPort::SplitAudioPort(AudioPort *capture, AudioPort *playback, QObject *parent)
    : AudioPort(parent)
    , m_capture(capture)
    , m_playback(playback)
{
    connect(capture, &AudioPort::captured, this, &AudioPort::captured);
    connect(playback, &AudioPort::rendered, this, &AudioPort::rendered);
    connect(playback, &AudioPort::bufferDone, this, &AudioPort::bufferDone);
    connect(capture, &AudioPort::devicesChanged, this, &AudioPort::devicesChanged);
    connect(playback, &AudioPort::devicesChanged, this, &AudioPort::devicesChanged);
}

bool SplitAudioPort::open(const QByteArray &inputId, const QByteArray &outputId)
{
    // Each side opens only its own direction; the other id means nothing to it.
    if (!m_capture->open(inputId, {})) {
        m_error = m_capture->error();
        return false;
    }
    if (!m_playback->open({}, outputId)) {
        m_error = m_playback->error();
        m_capture->close();
        return false;
    }
    m_error.clear();
    return true;
}

void SplitAudioPort::close()
{
    m_capture->close();
    m_playback->close();
}
