#pragma once

#include "platform/voiceoutput.h"

#include <QStringList>

// "Plays" each file by taking note of it and ending at once: what `chat play --output` uses to
// gather every part of a message's voice, in order, without a sound device.
class CollectingVoiceOutput : public VoiceOutput
{
    Q_OBJECT

public:
    using VoiceOutput::VoiceOutput;

    void play(const QString &file, double from, double rate) override;
    void pause() override {}
    void resume() override {}
    void stop() override {}
    void setRate(double) override {}
    double position() const override { return 0; }

    // Every file played, in order. A whole file played after parts replaces them.
    QStringList files;
};
