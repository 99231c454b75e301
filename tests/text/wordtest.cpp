#include "platform/appdata.h"
#include "support/testhome.h"
#include "text/l.h"
#include "text/word.h"

#include <QRegularExpression>
#include <QTest>

class WordTest : public QObject
{
    Q_OBJECT

private slots:
    void of_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("expected");
        QTest::newRow("English keeps the case") << "en" << "Running" << "Running";
        QTest::newRow("English keeps a known word") << "en" << "cancelling" << "cancelling";
        QTest::newRow("Russian, any case") << "ru" << "Running" << "выполняется";
        QTest::newRow("Russian, upper case") << "ru" << "CANCELLING" << "отменяется…";
        QTest::newRow("Hebrew") << "he" << "running" << "פועל";
        QTest::newRow("underscore key") << "ru" << "On_Track" << "по плану";
        QTest::newRow("unknown, Russian") << "ru" << "Frobnicating" << "Frobnicating";
        QTest::newRow("unknown, Hebrew") << "he" << "Frobnicating" << "Frobnicating";
        QTest::newRow("unknown, English") << "en" << "Frobnicating" << "Frobnicating";
        QTest::newRow("empty") << "ru" << "" << "";
        QTest::newRow("spaces are not trimmed") << "ru" << " running" << " running";
    }
    void of()
    {
        QFETCH(QString, lang);
        QFETCH(QString, raw);
        QFETCH(QString, expected);
        L::set(lang);
        QCOMPARE(Word::of(raw), expected);
    }

    // A stored value that is none of ours is "any other language": Russian.
    void otherLanguageShowsRussian()
    {
        AppData::setSetting("rb.lang", "xx");
        QCOMPARE(Word::of("done"), Word::table().value("done").ru);
    }

    void exactKeys()
    {
        const QStringList keys = QString(
            "running starting queued pending waiting done completed failed error cancelled "
            "cancelling missed paused archived exec work push pull action probe pair enroll ac "
            "accepted rejected blocked attention expired critical degraded warn ok healthy strong "
            "stable active connected initiated unknown unavailable disabled idle draft planned "
            "doing on_track at_risk off_track todo stalled collecting partial published verified "
            "high medium low positive up down flat owner admin user assistant parallel scheduled "
            "web leads revenue retention artifact concept data method content organization person "
            "event location category naturalobject general development testing deployment "
            "messaging visual api deterministic local prompt parallel_task")
                                     .split(' ');
        QCOMPARE(keys.size(), 93);
        QStringList actual = Word::table().keys();
        QStringList wanted = keys;
        actual.sort();
        wanted.sort();
        QCOMPARE(actual, wanted);
    }

    // Every translation is written in its own script: no English, no placeholder.
    void everyTextInItsScript()
    {
        const QRegularExpression latin("[A-Za-z]");
        const QRegularExpression hebrew("[\\x{05D0}-\\x{05EA}]");
        const QRegularExpression cyrillic("[\\x{0400}-\\x{04FF}]");
        for (auto it = Word::table().cbegin(); it != Word::table().cend(); ++it) {
            const QByteArray key = it.key().toUtf8();
            QVERIFY2(it->he.contains(hebrew) && !it->he.contains(latin), key);
            QVERIFY2(it->ru.contains(cyrillic) && !it->ru.contains(latin), key);
            QVERIFY2(it->he.trimmed() == it->he && it->ru.trimmed() == it->ru, key);
        }
    }

private:
    TestHome home;
};

QTEST_GUILESS_MAIN(WordTest)
#include "wordtest.moc"
