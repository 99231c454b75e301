#include "platform/appdata.h"
#include "support/testhome.h"
#include "text/l.h"
#include "text/since.h"
#include "text/word.h"

#include <QRegularExpression>
#include <QTest>

#include <ctime>
#include <functional>

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

    void ages_data()
    {
        QTest::addColumn<bool>("lasted");
        QTest::addColumn<qint64>("seconds");
        QTest::addColumn<Texts>("texts");
        QTest::newRow("age 59") << false << qint64(59) << Texts{"59s", "59 с", "59 שניות"};
        QTest::newRow("age 60") << false << qint64(60) << Texts{"1m", "1 м", "דקה"};
        QTest::newRow("age 3599") << false << qint64(3599) << Texts{"59m", "59 м", "59 דקות"};
        QTest::newRow("age 3600") << false << qint64(3600) << Texts{"1h", "1 ч", "שעה"};
        QTest::newRow("age 86399") << false << qint64(86399) << Texts{"23h", "23 ч", "23 שעות"};
        QTest::newRow("age 86400") << false << qint64(86400) << Texts{"1d", "1 дн", "יום"};
        QTest::newRow("age clock skew") << false << qint64(-30) << Texts{"0s", "0 с", "0 שניות"};
        QTest::newRow("lasted negative") << true << qint64(-5) << Texts{"0s", "0 с", "0 שנ׳"};
        QTest::newRow("lasted minutes and seconds")
            << true << qint64(185) << Texts{"3m 5s", "3 мин 5 с", "3 דק׳ 5 שנ׳"};
        QTest::newRow("lasted hours drop seconds")
            << true << qint64(2 * 3600 + 5 * 60 + 59) << Texts{"2h 5m", "2 ч 5 мин", "2 שע׳ 5 דק׳"};
    }
    void ages()
    {
        QFETCH(bool, lasted);
        QFETCH(qint64, seconds);
        compareInEach([&] { return lasted ? Since::lasted(seconds) : Since::shortAge(seconds); });
    }

    void moments_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QDateTime>("moment");
        QTest::addColumn<Texts>("texts");
        const QDate today = now().date();
        QTest::newRow("today, given in UTC")
            << "when" << QDateTime(today, QTime(9, 5)).toUTC() << Texts{"09:05", "09:05", "09:05"};
        QTest::newRow("yesterday") << "when" << QDateTime(today.addDays(-1), QTime(23, 59))
                                   << Texts{"Yesterday 23:59", "Вчера 23:59", "אתמול 23:59"};
        QTest::newRow("tomorrow") << "when" << QDateTime(today.addDays(1), QTime(8, 0))
                                  << Texts{"Tomorrow 08:00", "Завтра 08:00", "מחר 08:00"};
        QTest::newRow("this year") << "when" << QDateTime(QDate(2024, 3, 2), QTime(14, 30))
                                   << Texts{"2 March, 14:30", "2 марта, 14:30", "2 מרץ, 14:30"};
        QTest::newRow("another year")
            << "when" << QDateTime(QDate(2023, 12, 31), QTime(14, 30))
            << Texts{"31 December 2023", "31 декабря 2023", "31 דצמבר 2023"};
        QTest::newRow("no moment") << "when" << QDateTime() << Texts{"—", "—", "—"};
        QTest::newRow("never seen")
            << "seen" << QDateTime() << Texts{"Never seen", "Ещё не был в сети", "טרם נראה"};
        QTest::newRow("seen a minute ago")
            << "seen" << now().addSecs(-60)
            << Texts{"Last seen 1m ago", "Последний раз в сети 1 м назад", "נראה לאחרונה לפני דקה"};
        // A reading stamped ahead of our clock is fresh, not "-5m ago".
        QTest::newRow("read ahead of clock")
            << "read" << now().addSecs(300) << Texts{"just now", "только что", "הרגע"};
        QTest::newRow("read a day ago")
            << "read" << now().addDays(-1) << Texts{"1d ago", "1 дн назад", "לפני יום"};
    }
    void moments()
    {
        QFETCH(QString, kind);
        QFETCH(QDateTime, moment);
        // when() gets "now" in UTC too: its calendar day must be the local one as well.
        compareInEach([&] {
            if (kind == u"when")
                return Since::when(moment, now().toUTC());
            return kind == u"seen" ? Since::seen(moment, now()) : Since::read(moment, now());
        });
    }

    void of_data()
    {
        QTest::addColumn<QString>("lang"); // raw value of the setting
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("expected");
        QTest::newRow("English keeps the case") << "en" << "Running" << "Running";
        QTest::newRow("Russian, any case") << "ru" << "CANCELLING" << "отменяется…";
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
