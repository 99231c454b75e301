#include "platform/appdata.h"
#include "support/testhome.h"
#include "text/l.h"
#include "text/plugintext.h"
#include "text/since.h"
#include "text/word.h"

#include <QRegularExpression>
#include <QTest>

#include <ctime>
#include <functional>
#include <limits>

using OptInt = std::optional<qint64>;
using OptReal = std::optional<double>;
Q_DECLARE_METATYPE(OptInt)
Q_DECLARE_METATYPE(OptReal)

using Texts = QStringList; // English, Russian, Hebrew

namespace {

void compareInEach(const std::function<QString()> &text)
{
    QFETCH(Texts, texts);
    QStringList seen;
    for (const char *lang : {"en", "ru", "he"}) {
        L::set(lang);
        seen << text();
    }
    QCOMPARE(seen, texts);
}

// A fixed local noon, so that yesterday and tomorrow are whole days away in any zone.
QDateTime now()
{
    return QDateTime(QDate(2024, 6, 15), QTime(12, 0));
}

} // namespace

// Texts made from what the server sends: ages and moments, plugin counts and costs (the same
// in every language) and bare keywords.
class PageTextTest : public QObject
{
    Q_OBJECT

private slots:
    // Far from UTC, so that a calendar day taken in UTC lands on another date.
    void initTestCase()
    {
        qputenv("TZ", "Pacific/Kiritimati");
        tzset();
    }

    void shortAge_data()
    {
        QTest::addColumn<qint64>("seconds");
        QTest::addColumn<Texts>("texts");
        QTest::newRow("1") << qint64(1) << Texts{"1s", "1 с", "שנייה"};
        QTest::newRow("59") << qint64(59) << Texts{"59s", "59 с", "59 שניות"};
        QTest::newRow("60") << qint64(60) << Texts{"1m", "1 м", "דקה"};
        QTest::newRow("90 truncates") << qint64(90) << Texts{"1m", "1 м", "דקה"};
        QTest::newRow("3599") << qint64(3599) << Texts{"59m", "59 м", "59 דקות"};
        QTest::newRow("3600") << qint64(3600) << Texts{"1h", "1 ч", "שעה"};
        QTest::newRow("86399") << qint64(86399) << Texts{"23h", "23 ч", "23 שעות"};
        QTest::newRow("86400") << qint64(86400) << Texts{"1d", "1 дн", "יום"};
        QTest::newRow("172800") << qint64(172800) << Texts{"2d", "2 дн", "2 ימים"};
        QTest::newRow("clock skew") << qint64(-30) << Texts{"0s", "0 с", "0 שניות"};
    }
    void shortAge()
    {
        QFETCH(qint64, seconds);
        compareInEach([&] { return Since::shortAge(seconds); });
    }

    void when_data()
    {
        QTest::addColumn<QDateTime>("moment");
        QTest::addColumn<Texts>("texts");
        const QDate today = now().date();
        const QDateTime morning(today, QTime(9, 5));
        QTest::newRow("today, given in UTC") << morning.toUTC() << Texts{"09:05", "09:05", "09:05"};
        QTest::newRow("yesterday") << QDateTime(today.addDays(-1), QTime(23, 59))
                                   << Texts{"Yesterday 23:59", "Вчера 23:59", "אתמול 23:59"};
        QTest::newRow("tomorrow") << QDateTime(today.addDays(1), QTime(8, 0))
                                  << Texts{"Tomorrow 08:00", "Завтра 08:00", "מחר 08:00"};
        QTest::newRow("this year") << QDateTime(QDate(2024, 3, 2), QTime(14, 30))
                                   << Texts{"2 March, 14:30", "2 марта, 14:30", "2 מרץ, 14:30"};
        QTest::newRow("another year")
            << QDateTime(QDate(2023, 12, 31), QTime(14, 30))
            << Texts{"31 December 2023", "31 декабря 2023", "31 דצמבר 2023"};
        QTest::newRow("no moment") << QDateTime() << Texts{"—", "—", "—"};
    }
    void when()
    {
        QFETCH(QDateTime, moment);
        // "now" in UTC too: its calendar day must be the local one as well.
        compareInEach([&] { return Since::when(moment, now().toUTC()); });
    }

    void seenAndRead_data()
    {
        QTest::addColumn<bool>("seen"); // Since::seen, else Since::read
        QTest::addColumn<QDateTime>("moment");
        QTest::addColumn<Texts>("texts");
        const Texts justNow{"just now", "только что", "הרגע"};
        QTest::newRow("never seen")
            << true << QDateTime() << Texts{"Never seen", "Ещё не был в сети", "טרם נראה"};
        QTest::newRow("seen 59 s ago")
            << true << now().addSecs(-59)
            << Texts{"Last seen just now", "В сети только что", "נראה לאחרונה הרגע"};
        QTest::newRow("seen a minute ago")
            << true << now().addSecs(-60)
            << Texts{"Last seen 1m ago", "Последний раз в сети 1 м назад", "נראה לאחרונה לפני דקה"};
        QTest::newRow("no reading") << false << QDateTime() << Texts{"—", "—", "—"};
        // A reading stamped ahead of our clock is fresh, not "-5m ago".
        QTest::newRow("read ahead of clock") << false << now().addSecs(300) << justNow;
        QTest::newRow("read a day ago")
            << false << now().addDays(-1) << Texts{"1d ago", "1 дн назад", "לפני יום"};
    }
    void seenAndRead()
    {
        QFETCH(bool, seen);
        QFETCH(QDateTime, moment);
        const auto text = seen ? &Since::seen : &Since::read;
        compareInEach([&] { return text(moment, now()); });
    }

    void lasted_data()
    {
        QTest::addColumn<qint64>("seconds");
        QTest::addColumn<Texts>("texts");
        QTest::newRow("negative") << qint64(-5) << Texts{"0s", "0 с", "0 שנ׳"};
        QTest::newRow("whole minutes") << qint64(180) << Texts{"3m", "3 мин", "3 דק׳"};
        QTest::newRow("minutes and seconds") << qint64(185) << Texts{"3m 5s", "3 мин 5 с", "3 דק׳ 5 שנ׳"};
        QTest::newRow("hours drop seconds")
            << qint64(2 * 3600 + 5 * 60 + 59) << Texts{"2h 5m", "2 ч 5 мин", "2 שע׳ 5 דק׳"};
    }
    void lasted()
    {
        QFETCH(qint64, seconds);
        compareInEach([&] { return Since::lasted(seconds); });
    }

    void tokens_data()
    {
        QTest::addColumn<OptInt>("n");
        QTest::addColumn<QString>("expected");
        QTest::newRow("absent") << OptInt() << "0";
        QTest::newRow("999") << OptInt(999) << "999";
        QTest::newRow("1000") << OptInt(1000) << "1K";
        QTest::newRow("999999 rounds up within K") << OptInt(999999) << "1000K";
        QTest::newRow("1000000") << OptInt(1000000) << "1.0M";
        QTest::newRow("12345678901") << OptInt(12345678901) << "12.35B";
        QTest::newRow("negative stays as is") << OptInt(-5000) << "-5000";
    }
    void tokens()
    {
        QFETCH(OptInt, n);
        QFETCH(QString, expected);
        for (const char *lang : {"en", "ru", "he"}) {
            L::set(lang);
            QCOMPARE(PluginText::tokens(n), expected);
        }
    }

    void usd_data()
    {
        QTest::addColumn<OptReal>("x");
        QTest::addColumn<QString>("expected");
        QTest::newRow("absent") << OptReal() << "—";
        QTest::newRow("not a number") << OptReal(std::numeric_limits<double>::quiet_NaN()) << "—";
        QTest::newRow("0.004") << OptReal(0.004) << "$0.00400";
        QTest::newRow("0.01") << OptReal(0.01) << "$0.010";
        QTest::newRow("1") << OptReal(1) << "$1.00";
        QTest::newRow("100") << OptReal(100) << "$100";
        QTest::newRow("12345.6") << OptReal(12345.6) << "$12346";
    }
    void usd()
    {
        QFETCH(OptReal, x);
        QFETCH(QString, expected);
        for (const char *lang : {"en", "ru", "he"}) {
            L::set(lang);
            QCOMPARE(PluginText::usd(x), expected);
        }
    }

    void seconds_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<OptReal>("x");
        QTest::addColumn<QString>("expected");
        const double infinite = std::numeric_limits<double>::infinity();
        QTest::newRow("absent") << "he" << OptReal() << "–";
        QTest::newRow("infinite") << "en" << OptReal(infinite) << "–";
        QTest::newRow("Russian") << "ru" << OptReal(12.6) << "13 с";
        QTest::newRow("Hebrew") << "he" << OptReal(0.2) << "0 שנ׳";
        QTest::newRow("half rounds away") << "en" << OptReal(2.5) << "3s";
    }
    void seconds()
    {
        QFETCH(QString, lang);
        QFETCH(OptReal, x);
        QFETCH(QString, expected);
        L::set(lang);
        QCOMPARE(PluginText::seconds(x), expected);
    }

    void of_data()
    {
        QTest::addColumn<QString>("lang"); // raw value of the setting
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("expected");
        QTest::newRow("English keeps the case") << "en" << "Running" << "Running";
        QTest::newRow("Russian, any case") << "ru" << "CANCELLING" << "отменяется…";
        QTest::newRow("Hebrew") << "he" << "running" << "פועל";
        QTest::newRow("unknown passes through") << "he" << "Frobnicating" << "Frobnicating";
        // A stored value that is none of ours is "any other language": Russian.
        QTest::newRow("other language") << "xx" << "done" << "готово";
    }
    void of()
    {
        QFETCH(QString, lang);
        QFETCH(QString, raw);
        QFETCH(QString, expected);
        AppData::setSetting("rb.lang", lang);
        QCOMPARE(Word::of(raw), expected);
    }

    // Keys are looked up in lower case; each text is in its own script: no English, no
    // placeholder, no swapped columns.
    void everyEntryUsable()
    {
        const QRegularExpression latin("[A-Za-z]"), hebrew("[\\x{05D0}-\\x{05EA}]"),
            cyrillic("[\\x{0400}-\\x{04FF}]");
        for (auto it = Word::table().cbegin(); it != Word::table().cend(); ++it) {
            const QByteArray key = it.key().toUtf8();
            QVERIFY2(it.key() == it.key().toLower(), key);
            QVERIFY2(it->he.contains(hebrew) && !it->he.contains(latin), key);
            QVERIFY2(it->ru.contains(cyrillic) && !it->ru.contains(latin), key);
            QVERIFY2(it->he.trimmed() == it->he && it->ru.trimmed() == it->ru, key);
        }
    }

private:
    TestHome home;
};

QTEST_GUILESS_MAIN(PageTextTest)
#include "pagetexttest.moc"
