#include "platform/appdata.h"
#include "support/testhome.h"
#include "text/l.h"
#include "text/langquery.h"

#include <QTest>

Q_DECLARE_METATYPE(LangQuery::Page)

class LangQueryTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { AppData::removeSetting("rb.lang"); }

    void path_data()
    {
        QTest::addColumn<LangQuery::Page>("page");
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("expected");
        using P = LangQuery::Page;
        QTest::newRow("plugins") << P::Plugins << "he" << "webapi/plugins?lang=he";
        QTest::newRow("benchmarks") << P::Benchmarks << "ru" << "webapi/plugins/benchmarks?lang=ru";
        QTest::newRow("loops") << P::LearningLoops << "en" << "webapi/learning-loops?lang=en";
        QTest::newRow("loop store") << P::LoopStore << "he"
                                    << "webapi/learning-loops/store?lang=he";
    }
    void path()
    {
        QFETCH(LangQuery::Page, page);
        QFETCH(QString, lang);
        QFETCH(QString, expected);
        L::set(lang);
        QCOMPARE(LangQuery::path(page), expected);
        QCOMPARE(LangQuery::path(page, lang), expected);
    }

    // Before anything is stored the device language goes to the server.
    void unsetSendsDeviceLanguage()
    {
        QCOMPARE(LangQuery::path(LangQuery::Page::Plugins),
                 "webapi/plugins?lang=" + L::deviceDefault());
    }

private:
    TestHome home;
};

QTEST_GUILESS_MAIN(LangQueryTest)
#include "langquerytest.moc"
