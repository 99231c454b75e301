// The upload meter on a clock the test moves: what is metered, when texts reach the screen,
// and what clearing takes back.

#include "chat/transfer/uploadmeter.h"
#include "platform/sleeper.h"

#include <QCoroSignal>
#include <QSignalSpy>
#include <QTest>

using namespace std::chrono_literals;

namespace {

constexpr qint64 total = 1'000'000;
const QString key = QStringLiteral("demo:upload:f1");

} // namespace

// Sleeps that end one at a time, oldest first, when the test says so: a cancelled wait must be
// seen ending on its own.
class QueueSleeper : public QObject, public Sleeper
{
    Q_OBJECT

public:
    QList<std::chrono::milliseconds> requested;

    QCoro::Task<> sleep(std::chrono::milliseconds duration) override
    {
        requested.append(duration);
        const int number = requested.size();
        while (m_ended < number)
            co_await qCoro(this, &QueueSleeper::ended);
    }

    void endOldest()
    {
        ++m_ended;
        emit ended();
        QCoreApplication::processEvents();
    }

    void endAll()
    {
        while (m_ended < requested.size())
            endOldest();
    }

signals:
    void ended();

private:
    int m_ended = 0;
};

class UploadMeterTest : public QObject
{
    Q_OBJECT

    double now = 0;
    std::unique_ptr<QueueSleeper> sleeper;
    std::unique_ptr<UploadMeter> meter;
    std::unique_ptr<QSignalSpy> shown;

    QStringList texts() const
    {
        QStringList out;
        for (const QList<QVariant> &change : *shown)
            out.append(change[1].toString());
        return out;
    }

    void report(double at, qint64 sent, const QString &which = key)
    {
        now = at;
        meter->report(which, sent, total);
    }

    void settle(double at)
    {
        now = at;
        sleeper->endAll();
    }

private slots:
    void init()
    {
        now = 0;
        meter.reset();
        sleeper = std::make_unique<QueueSleeper>();
        meter = std::make_unique<UploadMeter>(*sleeper, [this] { return now; });
        shown = std::make_unique<QSignalSpy>(meter.get(), &UploadMeter::changed);
    }

    void smallUploadsAreNotMetered_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<QString>("text");
        QTest::newRow("unknown size") << qint64(0) << QString();
        QTest::newRow("one byte short") << qint64(32'767) << QString();
        QTest::newRow("smallest metered") << qint64(32'768) << QStringLiteral("50%");
    }

    void smallUploadsAreNotMetered()
    {
        QFETCH(qint64, size);
        QFETCH(QString, text);
        meter->report(key, size / 2, size);
        QCOMPARE(meter->text(key), text);
        QCOMPARE(shown->size(), text.isEmpty() ? 0 : 1);
    }

    void format_data()
    {
        QTest::addColumn<qint64>("sent");
        QTest::addColumn<qint64>("of");
        QTest::addColumn<QString>("text");
        QTest::newRow("unknown total") << qint64(0) << qint64(0) << "";
        QTest::newRow("not yet done") << total - 1 << total << "99%";
        QTest::newRow("done") << total << total << "100%";
        QTest::newRow("past the end") << total + 5 << total << "100%";
        QTest::newRow("beyond 32 bits") << qint64(3'000'000'000) << qint64(6'000'000'000) << "50%";
    }

    void format()
    {
        QFETCH(qint64, sent);
        QFETCH(qint64, of);
        QTEST(UploadMeter::format(sent, of), "text");
    }

    void publishesAtMostEveryFifthOfASecond()
    {
        report(0.0, 100'000);
        report(0.1, 100'500); // owed, but still 10%: not shown again
        settle(0.4);
        // Nothing new was shown since 0.0, so this one goes at once.
        report(0.45, 200'000);
        // Sooner than 0.2 s: owed, published 0.3 s later with the newest text.
        report(0.5, 250'000);
        report(0.55, 300'000);
        QCOMPARE(texts(), (QStringList{"10%", "20%"}));
        QCOMPARE(sleeper->requested, (QList<std::chrono::milliseconds>{300ms, 300ms}));
        settle(0.85);
        // The owed publication counts as shown: the next report is spaced from it.
        report(0.9, 400'000);
        settle(1.2);
        report(1.5, 500'000);
        QCOMPARE(texts(), (QStringList{"10%", "20%", "30%", "40%", "50%"}));
        QCOMPARE(sleeper->requested.size(), 3);
        // Each key keeps its own pace.
        report(1.55, 600'000, QStringLiteral("other"));
        QCOMPARE(shown->last()[0].toString(), QStringLiteral("other"));
        QCOMPARE(sleeper->requested.size(), 3);
    }

    void clearTakesTheTextBackAndCancelsWhatIsOwed()
    {
        report(0.0, 100'000);
        report(0.1, 200'000); // owed
        meter->clear(key);
        QCOMPARE(texts(), (QStringList{"10%", ""}));
        QCOMPARE(meter->text(key), QString());

        // A new upload under the same key starts afresh; the cancelled wait publishes nothing.
        report(0.12, 500'000);
        report(0.15, 600'000); // owed again, a wait of its own
        now = 0.4;
        sleeper->endOldest();
        QCOMPARE(texts(), (QStringList{"10%", "", "50%"}));
        now = 0.45;
        sleeper->endOldest();
        QCOMPARE(texts(), (QStringList{"10%", "", "50%", "60%"}));

        // Clearing what never showed says nothing.
        meter->clear(QStringLiteral("unknown"));
        QCOMPARE(shown->size(), 4);
    }
};

QTEST_GUILESS_MAIN(UploadMeterTest)

#include "uploadmetertest.moc"
