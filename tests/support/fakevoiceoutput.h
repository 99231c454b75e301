#pragma once

#include "platform/voiceoutput.h"

#include <QList>

// Says what it was asked to play; the test decides when a file ends or fails.
class FakeVoiceOutput : public VoiceOutput
{
public:
    struct Played {
        QString file;
        double from;
        double rate;
    };
    QList<Played> played;
    bool paused = false;
    double at = 0;

    void play(const QString &file, double from, double rate) override
    {
        played.append({file, from, rate});
        at = from;
        paused = false;
    }
    void pause() override { paused = true; }
    void resume() override { paused = false; }
    void stop() override {}
    void setRate(double) override {}
    double position() const override { return at; }
    void end() { emit ended(); }
    void fail() { emit failed(QStringLiteral("cannot decode")); }
};
