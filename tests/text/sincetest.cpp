#include "support/testhome.h"
#include "text/l.h"
#include "text/since.h"

#include <QTest>

class SinceTest : public QObject
{
    Q_OBJECT

private slots:
    void shortAge_data()
    {
        QTest::addColumn<qint64>("seconds");
        QTest::addColumn<QString>("en");
        QTest::addColumn<QString>("ru");
        QTest::addColumn<QString>("he");
        QTest::newRow("0") << qint64(0) << "0s" << "0 с" << "0 שניות";
        QTest::newRow("1") << qint64(1) << "1s" << "1 с" << "שנייה";
        QTest::newRow("2") << qint64(2) << "2s" << "2 с" << "2 שניות";
        QTest::newRow("59") << qint64(59) << "59s" << "59 с" << "59 שניות";
        QTest::newRow("60") << qint64(60) << "1m" << "1 м" << "דקה";
        QTest::newRow("90") << qint64(90) << "1m" << "1 м" << "דקה";
        QTest::newRow("119") << qint64(119) << "1m" << "1 м" << "דקה";
        QTest::newRow("120") << qint64(120) << "2m" << "2 м" << "2 דקות";
        QTest::newRow("3599") << qint64(3599) << "59m" << "59 м" << "59 דקות";
        QTest::newRow("3600") << qint64(3600) << "1h" << "1 ч" << "שעה";
        QTest::newRow("7199") << qint64(7199) << "1h" << "1 ч" << "שעה";
        QTest::newRow("7200") << qint64(7200) << "2h" << "2 ч" << "2 שעות";
        QTest::newRow("86399") << qint64(86399) << "23h" << "23 ч" << "23 שעות";
        QTest::newRow("86400") << qint64(86400) << "1d" << "1 дн" << "יום";
        QTest::newRow("172799") << qint64(172799) << "1d" << "1 дн" << "יום";
        QTest::newRow("172800") << qint64(172800) << "2d" << "2 дн" << "2 ימים";
        QTest::newRow("400 days") << qint64(400 * 86400) << "400d" << "400 дн" << "400 ימים";
        QTest::newRow("clock skew") << qint64(-30) << "0s" << "0 с" << "0 שניות";
    }
    void shortAge()
    {
        QFETCH(qint64, seconds);
        QFETCH(QString, en);
        QFETCH(QString, ru);
        QFETCH(QString, he);
        L::set("en");
        QCOMPARE(Since::shortAge(seconds), en);
        L::set("ru");
        QCOMPARE(Since::shortAge(seconds), ru);
        L::set("he");
        QCOMPARE(Since::shortAge(seconds), he);
    }

    void when_data()
    {
        QTest::addColumn<QDateTime>("moment");
        QTest::addColumn<QString>("en");
        QTest::addColumn<QString>("ru");
        QTest::addColumn<QString>("he");
        const QDate today = now().date();
        QTest::newRow("today") << QDateTime(today, QTime(9, 5)) << "09:05" << "09:05" << "09:05";
        QTest::newRow("just after midnight")
            << QDateTime(today, QTime(0, 0)) << "00:00" << "00:00" << "00:00";
        QTest::newRow("yesterday") << QDateTime(today.addDays(-1), QTime(23, 59))
                                   << "Yesterday 23:59" << "Вчера 23:59" << "אתמול 23:59";
        QTest::newRow("tomorrow") << QDateTime(today.addDays(1), QTime(8, 0)) << "Tomorrow 08:00"
                                  << "Завтра 08:00" << "מחר 08:00";
        QTest::newRow("this year") << QDateTime(QDate(2024, 3, 2), QTime(14, 30))
                                   << "2 March, 14:30" << "2 марта, 14:30" << "2 מרץ, 14:30";
        QTest::newRow("another year") << QDateTime(QDate(2023, 12, 31), QTime(14, 30))
                                      << "31 December 2023" << "31 декабря 2023"
                                      << "31 דצמבר 2023";
        QTest::newRow("no moment") << QDateTime() << "—" << "—" << "—";
    }
    void when()
    {
        QFETCH(QDateTime, moment);
        QFETCH(QString, en);
        QFETCH(QString, ru);
        QFETCH(QString, he);
        L::set("en");
        QCOMPARE(Since::when(moment, now()), en);
        L::set("ru");
        QCOMPARE(Since::when(moment, now()), ru);
        L::set("he");
        QCOMPARE(Since::when(moment, now()), he);
    }

    // The calendar day is the local one, whatever zone the moment was given in.
    void whenUsesLocalDays()
    {
        L::set("en");
        const QDateTime moment(now().date(), QTime(9, 5));
        QCOMPARE(Since::when(moment.toUTC(), now().toUTC()), QString("09:05"));
    }

    void seen_data()
    {
        QTest::addColumn<qint64>("ago"); // -1: never
        QTest::addColumn<QString>("en");
        QTest::addColumn<QString>("ru");
        QTest::addColumn<QString>("he");
        QTest::newRow("never") << qint64(-1) << "Never seen" << "Ещё не был в сети" << "טרם נראה";
        QTest::newRow("now") << qint64(0) << "Last seen just now" << "В сети только что"
                             << "נראה לאחרונה הרגע";
        QTest::newRow("59 s") << qint64(59) << "Last seen just now" << "В сети только что"
                              << "נראה לאחרונה הרגע";
        QTest::newRow("a minute") << qint64(60) << "Last seen 1m ago"
                                  << "Последний раз в сети 1 м назад" << "נראה לאחרונה לפני דקה";
        QTest::newRow("3 hours") << qint64(3 * 3600) << "Last seen 3h ago"
                                 << "Последний раз в сети 3 ч назад"
                                 << "נראה לאחרונה לפני 3 שעות";
    }
    void seen()
    {
        QFETCH(qint64, ago);
        QFETCH(QString, en);
        QFETCH(QString, ru);
        QFETCH(QString, he);
        const QDateTime moment = ago < 0 ? QDateTime() : now().addSecs(-ago);
        L::set("en");
        QCOMPARE(Since::seen(moment, now()), en);
        L::set("ru");
        QCOMPARE(Since::seen(moment, now()), ru);
        L::set("he");
        QCOMPARE(Since::seen(moment, now()), he);
    }

    void read_data()
    {
        QTest::addColumn<qint64>("ago"); // -1: no reading
        QTest::addColumn<QString>("en");
        QTest::addColumn<QString>("ru");
        QTest::addColumn<QString>("he");
        QTest::newRow("none") << qint64(-1) << "—" << "—" << "—";
        QTest::newRow("now") << qint64(0) << "just now" << "только что" << "הרגע";
        QTest::newRow("two days") << qint64(2 * 86400) << "2d ago" << "2 дн назад" << "לפני 2 ימים";
        QTest::newRow("a day") << qint64(86400) << "1d ago" << "1 дн назад" << "לפני יום";
    }
    void read()
    {
        QFETCH(qint64, ago);
        QFETCH(QString, en);
        QFETCH(QString, ru);
        QFETCH(QString, he);
        const QDateTime moment = ago < 0 ? QDateTime() : now().addSecs(-ago);
        L::set("en");
        QCOMPARE(Since::read(moment, now()), en);
        L::set("ru");
        QCOMPARE(Since::read(moment, now()), ru);
        L::set("he");
        QCOMPARE(Since::read(moment, now()), he);
    }

    // A reading stamped ahead of our clock is fresh, not "-5m ago".
    void readAheadOfClock()
    {
        L::set("en");
        QCOMPARE(Since::read(now().addSecs(300), now()), QString("just now"));
    }

    void lasted_data()
    {
        QTest::addColumn<qint64>("seconds");
        QTest::addColumn<QString>("en");
        QTest::addColumn<QString>("ru");
        QTest::addColumn<QString>("he");
        QTest::newRow("0") << qint64(0) << "0s" << "0 с" << "0 שנ׳";
        QTest::newRow("negative") << qint64(-5) << "0s" << "0 с" << "0 שנ׳";
        QTest::newRow("42 s") << qint64(42) << "42s" << "42 с" << "42 שנ׳";
        QTest::newRow("whole minutes") << qint64(180) << "3m" << "3 мин" << "3 דק׳";
        QTest::newRow("minutes and seconds") << qint64(185) << "3m 5s" << "3 мин 5 с"
                                             << "3 דק׳ 5 שנ׳";
        QTest::newRow("whole hour") << qint64(3600) << "1h" << "1 ч" << "1 שע׳";
        QTest::newRow("hours drop seconds") << qint64(2 * 3600 + 5 * 60 + 59) << "2h 5m"
                                            << "2 ч 5 мин" << "2 שע׳ 5 דק׳";
        QTest::newRow("over a day") << qint64(26 * 3600) << "26h" << "26 ч" << "26 שע׳";
    }
    void lasted()
    {
        QFETCH(qint64, seconds);
        QFETCH(QString, en);
        QFETCH(QString, ru);
        QFETCH(QString, he);
        L::set("en");
        QCOMPARE(Since::lasted(seconds), en);
        L::set("ru");
        QCOMPARE(Since::lasted(seconds), ru);
        L::set("he");
        QCOMPARE(Since::lasted(seconds), he);
    }

private:
    // A fixed local noon, so that yesterday and tomorrow are whole days away in any zone.
    static QDateTime now() { return QDateTime(QDate(2024, 6, 15), QTime(12, 0)); }

    TestHome home;
};

QTEST_GUILESS_MAIN(SinceTest)
#include "sincetest.moc"
