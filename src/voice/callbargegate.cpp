#include "voice/callbargegate.h"

#include "voice/pcm.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr double bytesPerSecond = 48000;
constexpr double openAfter = 0.18;
constexpr double echoTail = 0.25;
constexpr double floorMargin = 9;
// Durations add up in steps of 1/50 s, which binary doubles cannot hold exactly.
constexpr double slack = 1e-9;

} // namespace

double CallBargeGate::clampedThreshold(double thresholdDB)
{
    return std::clamp(thresholdDB, -50.0, -20.0);
}

double CallBargeGate::levelDB(const qint16 *samples, qsizetype count)
{
    if (count <= 0) {
        return -80;
    }
    const double meanSquare = double(Pcm::sumOfSquares(samples, count)) / double(count);
    const double rms = std::sqrt(meanSquare) / 32768.0;
    return std::max(20.0 * std::log10(std::max(rms, 0.0001)), -80.0);
}

CallBargeGate::Result CallBargeGate::process(const QByteArray &pcm, bool playing, double now)
{
    if (pcm.isEmpty() || pcm.size() % 2 != 0) {
        return {};
    }
    if (playing) {
        lastPlayback = now;
    }
    const double seconds = double(pcm.size()) / bytesPerSecond;
    const double level = levelDB(reinterpret_cast<const qint16 *>(pcm.constData()), pcm.size() / 2);
    inputLevelDB = level;
    suppressed = false;
    const double threshold = clampedThreshold(thresholdDB);

    if (admitted) {
        const double release = threshold - 6;
        double bar = release;
        double hold = 0.8;
        if (playing) {
            bar = std::max(release, echoFloor ? *echoFloor + 5 : -75.0);
            hold = 0.5;
        }
        if (level >= bar) {
            silenceSeconds = 0;
        } else {
            silenceSeconds += seconds;
            if (silenceSeconds >= hold - slack) {
                admitted = false;
                silenceSeconds = 0;
            }
        }
        return {pcm, false};
    }

    bool candidateChunk = false;
    if (playing) {
        if (!echoFloor) {
            echoFloor = level;
        }
        if (level >= std::max(threshold, *echoFloor + floorMargin)) {
            candidateChunk = true;
        } else {
            const double learned = *echoFloor + (1 - std::exp(-seconds)) * (level - *echoFloor);
            echoFloor = std::max(learned, -80.0);
        }
    } else if (now - lastPlayback >= echoTail) {
        candidate.truncate(0);
        candidateSeconds = 0;
        return {pcm, false};
    } else {
        const double bar = std::max(threshold, echoFloor ? *echoFloor + floorMargin : -71.0);
        candidateChunk = level >= bar;
    }

    if (candidateChunk) {
        candidate.append(pcm);
        candidateSeconds += seconds;
        if (candidateSeconds >= openAfter - slack) {
            admitted = true;
            candidateSeconds = 0;
            silenceSeconds = 0;
            opened += 1;
            if (playing) {
                openedWhilePlaying += 1;
            }
            return {std::exchange(candidate, {}), true};
        }
    } else {
        // Keeps the candidate's capacity: no allocation on the next candidate.
        candidate.truncate(0);
        candidateSeconds = 0;
    }
    suppressed = true;
    suppressedFrames += 1;
    return {};
}

void CallBargeGate::reset()
{
    candidate.truncate(0);
    candidateSeconds = 0;
    silenceSeconds = 0;
    admitted = false;
    lastPlayback = -std::numeric_limits<double>::infinity();
    inputLevelDB = -80;
    suppressed = false;
}
