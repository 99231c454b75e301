#pragma once

#include <QByteArray>

#include <limits>
#include <optional>

// The barge-in decision for microphone audio (16-bit 24 kHz mono) captured while the agent
// talks: is it the user interrupting, or the agent's own voice coming back from the speaker?
// A plain value owned by the call, run on the main thread only.
struct CallBargeGate {
    struct Result {
        QByteArray pcm;     // bytes to send now; may be empty
        bool barge = false; // this chunk opened the gate
    };

    double thresholdDB = -33;  // the user's interruption threshold, copied in before each chunk
    double inputLevelDB = -80; // level of the last chunk
    bool suppressed = false;   // the last chunk was held back
    int opened = 0;
    int openedWhilePlaying = 0;
    int suppressedFrames = 0;
    QByteArray candidate; // audio held while an interruption is being confirmed
    double candidateSeconds = 0;
    double silenceSeconds = 0; // time below the release level while open
    bool admitted = false;     // the user has the floor
    double lastPlayback = -std::numeric_limits<double>::infinity();
    std::optional<double> echoFloor; // the agent's voice as the microphone hears it

    Result process(const QByteArray &pcm, bool playing, double now);
    // Forgets a pending candidate and the open state; counters and the floor stay.
    void reset();

    // The threshold as the gate applies it.
    static double clampedThreshold(double thresholdDB);
    // Level in dBFS of 16-bit samples, floor -80.
    static double levelDB(const qint16 *samples, qsizetype count);
};
