#include "platform/appdata.h"
#include "support/testhome.h"
#include "voice/voicetuning.h"

#include <QSignalSpy>
#include <QTest>

#include <cmath>
#include <limits>

class TestVoiceTuning : public QObject
{
    Q_OBJECT

private slots:
    void set_data();
    void set();
    void activate_data();
    void activate();
};

void TestVoiceTuning::set_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("stored");

    QTest::newRow("whole dB") << -33.4 << -33.0;
    QTest::newRow("rounds half away") << -27.5 << -28.0;
    QTest::newRow("too loud") << -10.0 << -20.0;
    QTest::newRow("too quiet") << -70.0 << -50.0;
    QTest::newRow("not a number") << std::nan("") << -33.0;
    QTest::newRow("infinite") << -std::numeric_limits<double>::infinity() << -33.0;
}

void TestVoiceTuning::set()
{
    QFETCH(double, value);
    QFETCH(double, stored);
    TestHome home;
    VoiceTuning tuning;
    tuning.set(-40); // unsaved: no account yet
    QVERIFY(!AppData::setting(VoiceTuning::keyFor(QString())).isValid());
    tuning.activate(QStringLiteral("u7"));
    tuning.set(value);
    QCOMPARE(tuning.threshold(), stored);
    QCOMPARE(
        AppData::setting(QStringLiteral("voice.interruptionThresholdDB.account.u7")).toDouble(),
        stored);
}

void TestVoiceTuning::activate_data()
{
    QTest::addColumn<QString>("account");
    QTest::addColumn<QVariant>("ownKey");
    QTest::addColumn<QVariant>("legacyKey");
    QTest::addColumn<double>("threshold");

    QTest::newRow("nothing stored") << "u1" << QVariant() << QVariant() << -33.0;
    QTest::newRow("own value") << "u1" << QVariant(-41) << QVariant(-25) << -41.0;
    QTest::newRow("legacy key is not another account's")
        << "u1" << QVariant() << QVariant(-25) << -33.0;
    QTest::newRow("owner takes the legacy key") << "owner" << QVariant() << QVariant(-25) << -25.0;
    QTest::newRow("owner's own key wins") << "owner" << QVariant(-44) << QVariant(-25) << -44.0;
    QTest::newRow("stored out of range is clamped") << "u1" << QVariant(-90) << QVariant() << -50.0;
    QTest::newRow("garbage is the default") << "u1" << QVariant("loud") << QVariant() << -33.0;
}

void TestVoiceTuning::activate()
{
    QFETCH(QString, account);
    QFETCH(QVariant, ownKey);
    QFETCH(QVariant, legacyKey);
    QFETCH(double, threshold);
    TestHome home;
    if (ownKey.isValid()) {
        AppData::setSetting(VoiceTuning::keyFor(account), ownKey);
    }
    if (legacyKey.isValid()) {
        AppData::setSetting(QStringLiteral("voice.interruptionThresholdDB"), legacyKey);
    }
    VoiceTuning tuning;
    tuning.activate(QStringLiteral("other"));
    tuning.set(-21);
    tuning.activate(account);
    QCOMPARE(tuning.threshold(), threshold);
    // The same account again, or none, changes nothing.
    QSignalSpy changed(&tuning, &VoiceTuning::accountChanged);
    tuning.activate(account);
    tuning.activate(QString());
    QCOMPARE(changed.count(), 0);
    QCOMPARE(tuning.account(), account);
}

QTEST_GUILESS_MAIN(TestVoiceTuning)
#include "tst_voicetuning.moc"
