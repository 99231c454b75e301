#include "textcalls.h"
#include "text/ru.h"

#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

// Ru::words must hold the Russian of every English text the code base passes to the two-text
// L::t; otherwise a Russian user silently reads English.
class RuWordsTest : public QObject
{
    Q_OBJECT

private slots:
    void everyTwoTextCallHasRussian()
    {
        const QDir root(QStringLiteral(HALVENMARK_SOURCE_DIR));
        int files = 0;
        QStringList missing;
        for (const char *area : {"src", "cli", "desktop"}) {
            QDirIterator it(root.filePath(area), {"*.h", "*.hpp", "*.cpp", "*.cc", "*.cxx"},
                            QDir::Files, QDirIterator::Subdirectories);
            while (it.hasNext()) {
                const QString path = it.next();
                QFile file(path);
                QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
                ++files;
                const QString where = root.relativeFilePath(path);
                for (const TextCall &call : textCalls(QString::fromUtf8(file.readAll()))) {
                    if (call.arguments != 2)
                        continue;
                    const QString at = where + ':' + QString::number(call.line) + ": ";
                    if (!call.literal)
                        missing << at + "the English is not a plain string literal, so its "
                                        "Russian cannot be checked; write all three texts";
                    else if (!Ru::words().contains(call.english))
                        missing << at + '"' + call.english + "\" has no entry in Ru::words";
                }
            }
        }
        // Guards against a wrong source path turning this test into one that cannot fail.
        QVERIFY2(files > 0, "no sources found under HALVENMARK_SOURCE_DIR");
        QVERIFY2(missing.isEmpty(), qPrintable("\n" + missing.join('\n')));
    }

    void entriesAreRussian()
    {
        const QRegularExpression cyrillic("[\\x{0400}-\\x{04FF}]");
        for (auto it = Ru::words().cbegin(); it != Ru::words().cend(); ++it) {
            QVERIFY2(!it.key().isEmpty(), "an empty English key");
            QVERIFY2(it.value().contains(cyrillic), qPrintable(it.key()));
        }
    }
};

QTEST_GUILESS_MAIN(RuWordsTest)
#include "ruwordstest.moc"
