#include "platform/appdata.h"
#include "support/testhome.h"
#include "text/l.h"
#include "text/ru.h"

#include <QTest>

class LTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { AppData::removeSetting("rb.lang"); }

    void languageOf_data()
    {
        QTest::addColumn<QStringList>("preferred");
        QTest::addColumn<QString>("expected");
        QTest::newRow("old Hebrew code") << QStringList{"iw-IL"} << "he";
        QTest::newRow("Hebrew") << QStringList{"he-IL", "en-US"} << "he";
        QTest::newRow("upper case") << QStringList{"HE"} << "he";
        QTest::newRow("Russian") << QStringList{"ru-RU"} << "ru";
        QTest::newRow("Russian, underscore") << QStringList{"ru_UA"} << "ru";
        QTest::newRow("German") << QStringList{"de-DE"} << "en";
        QTest::newRow("empty list") << QStringList{} << "en";
        QTest::newRow("only the first counts") << QStringList{"de-DE", "ru-RU", "he"} << "en";
        QTest::newRow("empty first entry") << QStringList{"", "he"} << "en";
    }
    void languageOf()
    {
        QFETCH(QStringList, preferred);
        QFETCH(QString, expected);
        QCOMPARE(L::languageOf(preferred), expected);
    }

    void unsetFollowsDevice()
    {
        QVERIFY(L::stored().isEmpty());
        QCOMPARE(L::current(), L::deviceDefault());
    }

    void set_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("stored"); // "device" for the device's language
        QTest::newRow("he") << "he" << "he";
        QTest::newRow("en") << "en" << "en";
        QTest::newRow("ru") << "ru" << "ru";
        QTest::newRow("unknown code") << "fr" << "device";
        QTest::newRow("empty") << "" << "device";
        QTest::newRow("upper case is not ours") << "HE" << "device";
        QTest::newRow("region is not ours") << "ru-RU" << "device";
    }
    void set()
    {
        QFETCH(QString, code);
        QFETCH(QString, stored);
        const QString expected = stored == u"device" ? L::deviceDefault() : stored;
        // Start from a different language so that "unchanged" cannot pass by accident.
        L::set(expected == u"ru" ? "he" : "ru");
        L::set(code);
        QCOMPARE(L::stored(), expected);
        QCOMPARE(L::current(), expected);
    }

    void threeTexts_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("expected");
        QTest::newRow("he") << "he" << "שלום";
        QTest::newRow("en") << "en" << "Hello";
        QTest::newRow("ru") << "ru" << "Привет";
    }
    void threeTexts()
    {
        QFETCH(QString, lang);
        QFETCH(QString, expected);
        L::set(lang);
        QCOMPARE(L::t("שלום", "Hello", "Привет"), expected);
    }

    // A hand-edited or foreign setting must still give readable text.
    void strangeStoredValueShowsEnglish()
    {
        AppData::setSetting("rb.lang", "xx");
        QCOMPARE(L::t("שלום", "Hello", "Привет"), QString("Hello"));
        QCOMPARE(L::t("שלום", "Hello"), QString("Hello"));
    }

    // Russian without an entry in Ru::words shows the English rather than nothing.
    void twoTexts_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("expected");
        QTest::newRow("he") << "he" << "טקסט";
        QTest::newRow("en") << "en" << "A text nobody translated";
        QTest::newRow("ru, no entry") << "ru" << "A text nobody translated";
    }
    void twoTexts()
    {
        QFETCH(QString, lang);
        QFETCH(QString, expected);
        const QString english = "A text nobody translated";
        QVERIFY(!Ru::words().contains(english));
        L::set(lang);
        QCOMPARE(L::t("טקסט", english), expected);
    }

    // Every call reads the setting afresh; nothing is cached between calls.
    void changeTakesEffectAtOnce()
    {
        L::set("en");
        QCOMPARE(L::t("א", "a", "а"), QString("a"));
        L::set("he");
        QCOMPARE(L::t("א", "a", "а"), QString("א"));
        L::set("ru");
        QCOMPARE(L::t("א", "a", "а"), QString("а"));
    }

private:
    TestHome home;
};

QTEST_GUILESS_MAIN(LTest)
#include "ltest.moc"
