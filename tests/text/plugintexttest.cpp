#include "support/testhome.h"
#include "text/l.h"
#include "text/plugintext.h"

#include <QTest>

#include <limits>

using OptInt = std::optional<qint64>;
using OptReal = std::optional<double>;
Q_DECLARE_METATYPE(OptInt)
Q_DECLARE_METATYPE(OptReal)

class PluginTextTest : public QObject
{
    Q_OBJECT

private slots:
    void tokens_data()
    {
        QTest::addColumn<OptInt>("n");
        QTest::addColumn<QString>("expected");
        QTest::newRow("absent") << OptInt() << "0";
        QTest::newRow("0") << OptInt(0) << "0";
        QTest::newRow("999") << OptInt(999) << "999";
        QTest::newRow("1000") << OptInt(1000) << "1K";
        QTest::newRow("15400") << OptInt(15400) << "15K";
        QTest::newRow("999999 rounds up within K") << OptInt(999999) << "1000K";
        QTest::newRow("1000000") << OptInt(1000000) << "1.0M";
        QTest::newRow("1500000") << OptInt(1500000) << "1.5M";
        QTest::newRow("999999999") << OptInt(999999999) << "1000.0M";
        QTest::newRow("1000000000") << OptInt(1000000000) << "1.00B";
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
        QTest::newRow("0") << OptReal(0) << "$0.00000";
        QTest::newRow("0.01") << OptReal(0.01) << "$0.010";
        QTest::newRow("0.5") << OptReal(0.5) << "$0.500";
        QTest::newRow("1") << OptReal(1) << "$1.00";
        QTest::newRow("99.5") << OptReal(99.5) << "$99.50";
        QTest::newRow("100") << OptReal(100) << "$100";
        QTest::newRow("150.4") << OptReal(150.4) << "$150";
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
        QTest::newRow("absent") << "en" << OptReal() << "–";
        QTest::newRow("absent, Hebrew") << "he" << OptReal() << "–";
        QTest::newRow("English") << "en" << OptReal(12.4) << "12s";
        QTest::newRow("Russian") << "ru" << OptReal(12.6) << "13 с";
        QTest::newRow("Hebrew") << "he" << OptReal(0.2) << "0 שנ׳";
        QTest::newRow("half rounds away") << "en" << OptReal(2.5) << "3s";
        QTest::newRow("infinite") << "en" << OptReal(std::numeric_limits<double>::infinity())
                                  << "–";
    }
    void seconds()
    {
        QFETCH(QString, lang);
        QFETCH(OptReal, x);
        QFETCH(QString, expected);
        L::set(lang);
        QCOMPARE(PluginText::seconds(x), expected);
    }

    void alive_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("expected");
        QTest::newRow("en") << "en" << "Alive design prompt";
        QTest::newRow("ru") << "ru" << "Живой дизайн-промпт";
        QTest::newRow("he") << "he" << "פרומפט עיצוב חי";
    }
    void alive()
    {
        QFETCH(QString, lang);
        QFETCH(QString, expected);
        L::set(lang);
        QCOMPARE(PluginText::alive(), expected);
    }

private:
    TestHome home;
};

QTEST_GUILESS_MAIN(PluginTextTest)
#include "plugintexttest.moc"
