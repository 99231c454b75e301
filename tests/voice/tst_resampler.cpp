#include "voice/resampler.h"
#include "voice/tonefit.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

// Feeds the input in chunks of the given size, or of random sizes when it is 0.
std::vector<float> convert(Resampler &r, const std::vector<float> &in, qsizetype chunk)
{
    QRandomGenerator random(3);
    std::vector<float> out;
    for (size_t at = 0; at < in.size();) {
        const qsizetype n = std::min<qsizetype>(chunk > 0 ? chunk : random.bounded(1, 3000),
                                                qsizetype(in.size() - at));
        std::vector<float> part(size_t(r.maxOutput(n)));
        out.insert(out.end(), part.begin(),
                   part.begin() + r.process(in.data() + at, n, part.data()));
        at += size_t(n);
    }
    return out;
}

// Fits the tone over the last half second, past the filter's start-up.
ToneFit fitTail(const std::vector<float> &out, double frequency)
{
    return ToneFit::of(out.data() + out.size() - 12000, 12000, frequency, 24000);
}

} // namespace

class TestResampler : public QObject
{
    Q_OBJECT

private slots:
    void tones_data();
    void tones();
    void sixteenBitClipsAndRounds();
};

void TestResampler::tones_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<double>("maxLatencyMs");
    for (int rate : {8000, 16000, 22050, 24000, 32000, 44100, 48000, 96000, 23999, 44099}) {
        QTest::addRow("%d Hz", rate) << rate << (rate >= 44100 ? 2.0 : 6.0);
    }
}

void TestResampler::tones()
{
    QFETCH(int, rate);
    QFETCH(double, maxLatencyMs);
    Resampler r(rate);
    QVERIFY(r.latencySeconds() * 1000 < maxLatencyMs);

    // A tone in the pass band comes out at its level, clean.
    const double passFrequency = std::min(1000.0, rate / 10.0);
    const auto pass = convert(r, tone(passFrequency, rate, 0.5, size_t(rate)), 480);
    QVERIFY(std::abs(double(pass.size()) - 24000 * (1 - r.latencySeconds())) <= 2);
    const ToneFit fit = fitTail(pass, passFrequency);
    QVERIFY2(std::abs(20 * std::log10(fit.amplitude / 0.5)) < 0.01,
             qPrintable(QString::number(fit.amplitude)));
    QVERIFY2(fit.thdn() < -100, qPrintable(QString::number(fit.thdn())));

    // Chunking does not change the output, whether the phases are exact or interpolated.
    Resampler pieces(rate);
    r.reset();
    std::vector<float> random(size_t(rate) / 2);
    QRandomGenerator generator(rate);
    for (float &s : random) {
        s = float(generator.generateDouble() * 2 - 1);
    }
    QVERIFY(convert(pieces, random, 0) == convert(r, random, qsizetype(random.size())));

    // A tone 1.5 kHz over the output's Nyquist leaves nothing behind.
    if (rate > 27000) {
        r.reset();
        const auto alias = convert(r, tone(13500, rate, 1.0, size_t(rate)), 441);
        const double db = 20 * std::log10(fitTail(alias, 10500).amplitude);
        QVERIFY2(db < -105, qPrintable(QString::number(db)));
    }
}

void TestResampler::sixteenBitClipsAndRounds()
{
    Resampler r(24000);
    std::vector<float> in(2000, 40000.0f);
    std::fill(in.begin() + 1000, in.end(), -2.4f);
    std::vector<qint16> out(size_t(r.maxOutput(qsizetype(in.size()))));
    out.resize(size_t(r.process(in.data(), qsizetype(in.size()), out.data())));
    QVERIFY(out.size() > 1500);
    QCOMPARE(out[500], qint16(32767));
    QCOMPARE(out.back(), qint16(-2));
}

QTEST_GUILESS_MAIN(TestResampler)
#include "tst_resampler.moc"
