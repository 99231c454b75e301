// The capture path in a simulated room: the agent's speech leaves the speaker, comes back into
// the microphone after 60 ms with a decaying tail, plus noise; the echo canceller and then the
// barge-in gate must keep the agent from interrupting itself, yet let the user in at once.
#include "platform/wavfile.h"
#include "voice/callbargegate.h"
#include "voice/echocanceller.h"

#include <QRandomGenerator>
#include <QTest>

#include <cmath>

namespace {

constexpr int rate = 24000;
constexpr int frame = 240;      // 10 ms
constexpr int sinkDelay = 960;  // 40 ms from hand-over to the speaker
constexpr int echoDelay = 1440; // 60 ms from the speaker to the microphone

std::vector<float> readSpeech(const QString &name)
{
    const WavFile wav = WavFile::read(QStringLiteral(HALVENMARK_SPEECH "/") + name);
    const auto *s = reinterpret_cast<const qint16 *>(wav.samples.constData());
    return std::vector<float>(s, s + wav.samples.size() / 2);
}

// The level of each 10 ms frame in dBFS.
std::vector<double> frameLevels(const std::vector<float> &x)
{
    std::vector<double> levels;
    for (size_t at = 0; at + frame <= x.size(); at += frame) {
        double sum = 1e-9;
        for (int i = 0; i < frame; ++i) {
            sum += double(x[at + i]) * x[at + i];
        }
        levels.push_back(10 * std::log10(sum / frame / (32768.0 * 32768.0)));
    }
    return levels;
}

// Scales x so that its frames that carry sound (within 40 dB of the loudest) sit at db.
void scaleTo(std::vector<float> &x, double db)
{
    const auto levels = frameLevels(x);
    const double loudest = *std::max_element(levels.begin(), levels.end());
    double sum = 0;
    int count = 0;
    for (double level : levels) {
        sum += level > loudest - 40 ? std::pow(10, level / 10) : 0;
        count += level > loudest - 40;
    }
    const float gain = float(std::pow(10, (db - 10 * std::log10(sum / count)) / 20));
    for (float &s : x) {
        s *= gain;
    }
}

struct Outcome {
    int opened = 0;
    double firstBarge = -1; // seconds
};

// Replies of the agent's speech with 1.5 s pauses; the user's words (if any) start at userAt.
Outcome run(double echoDB, const std::vector<float> &agent, int replies,
            const std::vector<float> &user, double userAt)
{
    const size_t gap = rate * 3 / 2;
    const size_t length = replies * (agent.size() + gap) + rate;
    std::vector<float> handed(length, 0.0f);
    std::vector<bool> playing(length / frame + 1, false);
    for (int r = 0; r < replies; ++r) {
        const size_t start = gap + r * (agent.size() + gap);
        std::copy(agent.begin(), agent.end(), handed.begin() + start);
        for (size_t f = start / frame; f < (start + agent.size() + sinkDelay) / frame; ++f) {
            playing[f] = true;
        }
    }

    // Speaker to microphone: 60 ms, then a tail of sparse reflections decaying 60 dB in 0.25 s.
    QRandomGenerator random(7);
    std::vector<std::pair<size_t, float>> path{{sinkDelay + echoDelay, 1.0f}};
    for (int k = 0; k < 300; ++k) {
        const size_t lag = size_t(random.bounded(24, 6000));
        const double decay = std::exp(-6.9 * lag / 6000.0);
        path.emplace_back(sinkDelay + echoDelay + lag,
                          float(0.25 * decay * (random.generateDouble() * 2 - 1)));
    }
    std::vector<float> echo(length, 0.0f);
    for (const auto &[lag, weight] : path) {
        for (size_t n = lag; n < length; ++n) {
            echo[n] += weight * handed[n - lag];
        }
    }
    scaleTo(echo, echoDB);

    std::vector<float> mic(echo);
    const size_t userStart = size_t(userAt * rate);
    for (size_t i = 0; i < user.size() && userStart + i < length; ++i) {
        mic[userStart + i] += user[i];
    }
    std::vector<qint16> wire(length);
    for (size_t n = 0; n < length; ++n) {
        const double noise = 32768 * 0.0018 * (random.generateDouble() * 2 - 1); // about -60 dBFS
        wire[n] = qint16(std::clamp(std::lrint(mic[n] + noise), -32768L, 32767L));
    }

    EchoCanceller canceller(sinkDelay * 1000 / rate);
    CallBargeGate gate;
    Outcome outcome;
    QByteArray pending;
    std::vector<qint16> speaker(frame);
    for (size_t f = 0; f + 1 < length / frame; ++f) {
        for (int i = 0; i < frame; ++i) {
            speaker[size_t(i)] = qint16(std::lrint(handed[f * frame + i]));
        }
        canceller.render(speaker.data(), frame);
        pending += canceller.capture(
            QByteArray(reinterpret_cast<const char *>(wire.data() + f * frame), frame * 2));
        if (pending.size() < 960) {
            continue;
        }
        const double now = double(f + 1) * frame / rate;
        const auto result = gate.process(pending, playing[f], now);
        pending.clear();
        if (result.barge && outcome.firstBarge < 0) {
            outcome.firstBarge = now;
        }
    }
    outcome.opened = gate.opened;
    return outcome;
}

// When the user's first word starts: the first 10 ms frame above -45 dBFS.
double onset(const std::vector<float> &user)
{
    const auto levels = frameLevels(user);
    const auto first =
        std::find_if(levels.begin(), levels.end(), [](double db) { return db > -45; });
    return double(first - levels.begin()) * frame / rate;
}

} // namespace

class TestEchoRoom : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void room_data();
    void room();

private:
    std::vector<float> m_agent;
    std::vector<float> m_user;
};

void TestEchoRoom::initTestCase()
{
    m_agent = readSpeech(QStringLiteral("agent.wav"));
    m_user = readSpeech(QStringLiteral("user.wav"));
    QVERIFY(m_agent.size() > size_t(rate) * 15); // four replies make a minute
    QVERIFY(m_user.size() > size_t(rate));
    scaleTo(m_agent, -20);
    scaleTo(m_user, -24);
}

void TestEchoRoom::room_data()
{
    QTest::addColumn<double>("echoDB");
    QTest::addColumn<double>("userAt"); // negative: the agent alone, over a minute of speech
    for (double echo : {-24.0, -18.0}) {
        for (double at : {-1.0, 3.5, 9.0, 16.0, 26.0}) {
            QTest::addRow("echo %g dBFS, user at %g s", echo, at) << echo << at;
        }
    }
}

// Echo alone never opens the gate; the user's first word opens it within 0.25 s.
void TestEchoRoom::room()
{
    QFETCH(double, echoDB);
    QFETCH(double, userAt);
    if (userAt < 0) {
        QCOMPARE(run(echoDB, m_agent, 4, {}, 0).opened, 0);
        return;
    }
    const double firstBarge = run(echoDB, m_agent, 2, m_user, userAt).firstBarge;
    const double firstWord = userAt + onset(m_user);
    QVERIFY2(firstBarge >= firstWord && firstBarge - firstWord <= 0.25,
             qPrintable(QStringLiteral("opened at %1 s, the first word at %2 s")
                            .arg(firstBarge)
                            .arg(firstWord)));
}

QTEST_GUILESS_MAIN(TestEchoRoom)
#include "tst_echoroom.moc"
