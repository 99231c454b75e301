#pragma once

#include "voiceoutput.h"

class QAudioOutput;
class QMediaPlayer;

// QtMultimedia's player on the sound server's default output.
class MediaVoiceOutput : public VoiceOutput
{
    Q_OBJECT

public:
    explicit MediaVoiceOutput(QObject *parent = nullptr);

    void play(const QString &file, double from, double rate) override;
    void pause() override;
    void resume() override;
    void stop() override;
    void setRate(double rate) override;
    double position() const override;

private:
    QMediaPlayer *m_player;
    QAudioOutput *m_output;
    qint64 m_startAt = -1; // where to start once the file is loaded; -1 when started
};
