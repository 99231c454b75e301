#pragma once

#include <QObject>
#include <QString>

// Plays one audio file at a time for voice messages, as a port: the platform adapter decodes
// with QtMultimedia (Ogg/Opus, M4A/AAC, WAV), tests use a fake that tells them what it was asked.
class VoiceOutput : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // Plays file from `from` seconds at `rate`, replacing whatever played.
    virtual void play(const QString &file, double from, double rate) = 0;
    virtual void pause() = 0;
    virtual void resume() = 0;
    virtual void stop() = 0;
    virtual void setRate(double rate) = 0;
    // Seconds into the file that plays (or played last).
    virtual double position() const = 0;

    static VoiceOutput *platform(QObject *parent = nullptr);

signals:
    // The file played to its end.
    void ended();
    // The file could not be played.
    void failed(const QString &why);
};
