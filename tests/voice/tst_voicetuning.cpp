#include "platform/appdata.h"
#include "support/testhome.h"
#include "voice/voicetuning.h"

#include <QSignalSpy>
#include <QTest>

#include <cmath>

class TestVoiceTuning : public QObject
{
    Q_OBJECT

private slots:
    void threshold_data();
    void threshold();
};

void TestVoiceTuning::threshold_data()
{
    QTest::addColumn<QString>("account");
    QTest::addColumn<QVariant>("ownKey");
    QTest::addColumn<QVariant>("legacyKey");
    QTest::addColumn<QVariant>("set"); // set after signing in, when valid
    QTest::addColumn<double>("threshold");

    const QVariant no;
    QTest::newRow("nothing stored") << "u1" << no << no << no << -33.0;
    QTest::newRow("legacy key is not another account's")
        << "u1" << no << QVariant(-25) << no << -33.0;
    QTest::newRow("owner takes the legacy key") << "owner" << no << QVariant(-25) << no << -25.0;
    QTest::newRow("owner's own key wins")
        << "owner" << QVariant(-44) << QVariant(-25) << no << -44.0;
    QTest::newRow("stored out of range is clamped") << "u1" << QVariant(-90) << no << no << -50.0;
    QTest::newRow("stored garbage is the default") << "u1" << QVariant("loud") << no << no << -33.0;
    QTest::newRow("set: rounds half away") << "u7" << no << no << QVariant(-27.5) << -28.0;
    QTest::newRow("set: too loud") << "u7" << no << no << QVariant(-10.0) << -20.0;
    QTest::newRow("set: not a number")
        << "u7" << QVariant(-40) << no << QVariant(std::nan("")) << -33.0;
}

void TestVoiceTuning::threshold()
{
    QFETCH(QString, account);
    QFETCH(QVariant, ownKey);
    QFETCH(QVariant, legacyKey);
    QFETCH(QVariant, set);
    QFETCH(double, threshold);
    TestHome home;
    if (ownKey.isValid()) {
        AppData::setSetting(VoiceTuning::keyFor(account), ownKey);
    }
    if (legacyKey.isValid()) {
        AppData::setSetting(QStringLiteral("voice.interruptionThresholdDB"), legacyKey);
    }
    VoiceTuning tuning;
    tuning.set(-40); // no account yet: not saved
    QVERIFY(!AppData::setting(VoiceTuning::keyFor(QString())).isValid());
    tuning.activate(QStringLiteral("other"));
    tuning.set(-21);
    tuning.activate(account);
    if (set.isValid()) {
        tuning.set(set.toDouble());
        QCOMPARE(
            AppData::setting(QStringLiteral("voice.interruptionThresholdDB.account.") + account)
                .toDouble(),
            threshold);
    }
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
