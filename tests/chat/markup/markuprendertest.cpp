// `halvenmark-cli render`: one message on stdin, the chosen writer's output on stdout.

#include "describe.h"
#include "support/testhome.h"

#include "chat/markup/markup.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryFile>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

struct Result {
    int code = -1;
    QByteArray out;
    QByteArray err;
};

Result render(const QString &mode, const QByteArray &input, const QStringList &environment = {})
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(u"NO_COLOR"_s);
    env.insert(u"LANG"_s, u"en_US.UTF-8"_s);
    for (const QString &entry : environment)
        env.insert(entry.section(u'=', 0, 0), entry.section(u'=', 1));
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(HALVENMARK_RENDER_DRIVER), {mode});
    if (!process.waitForStarted())
        return {};
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000))
        return {};
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

} // namespace

class RenderCommandTest : public QObject
{
    Q_OBJECT

    TestHome home;

private slots:
    void run_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        const QByteArray message = u"**\u05E9\u05DC\u05D5\u05DD** hi /usr/bin "
                                   "\u05E2\u05D5\u05DC\u05DD \u05D8\u05D5\u05D1\n"_s.toUtf8();
        const QString line = u"\u05E9\u05DC\u05D5\u05DD <LRI>hi /usr/bin<PDI> "
                             "\u05E2\u05D5\u05DC\u05DD \u05D8\u05D5\u05D1"_s;
        QTest::newRow("plain") << u"plain"_s << message << 0 << u"<RLM>"_s + line + u"\n"_s
                               << QString();
        QTest::newRow("html") << u"html"_s << message << 0
                              << u"<div dir=\"rtl\" style=\"white-space:pre-wrap\"><RLM><b>"_s +
                                     line.left(4) + u"</b>"_s + line.mid(4) + u"</div>\n"_s
                              << QString();
        // Through a pipe stdout is no terminal: no colour.
        QTest::newRow("ansi") << u"ansi"_s << message << 0 << u"<RLM>"_s + line + u"\n"_s
                              << QString();
        QTest::newRow("invalid UTF-8 is shown, not refused")
            << u"plain"_s << QByteArray("a\xff\xfe b \xc3") << 0
            << u"<LRM>a\uFFFD\uFFFD b \uFFFD\n"_s << QString();
        QTest::newRow("empty input") << u"ansi"_s << QByteArray() << 0 << QString() << QString();
        QTest::newRow("unknown mode") << u"--pdf"_s << QByteArray("x") << 2 << QString()
                                      << u"--pdf"_s;
    }

    void run()
    {
        QFETCH(QString, mode);
        QFETCH(QByteArray, input);
        QFETCH(int, code);
        QFETCH(QString, out);
        QFETCH(QString, err);
        const Result r = render(mode, input);
        QCOMPARE(r.code, code);
        QCOMPARE(visible(QString::fromUtf8(r.out)), out);
        QVERIFY2(QString::fromUtf8(r.err).contains(err), r.err.constData());
    }

    void widthFromColumns()
    {
        const QByteArray table = "| a | some words that will need to wrap | b |\n|---|---|---|\n"
                                 "| 1 | 2 | 3 |\n";
        const Result r = render(u"ansi"_s, table, {u"COLUMNS=24"_s});
        QCOMPARE(r.code, 0);
        const QStringList lines = QString::fromUtf8(r.out).trimmed().split(u'\n');
        QVERIFY(lines.size() > 5);
        for (const QString &line : lines)
            QCOMPARE(line.size() - line.count(QChar(0x200E)), 24);
    }

    // On a terminal (script(1) gives it one) styles are on, unless NO_COLOR says otherwise.
    void colourOnTerminals()
    {
        const QString script = QStandardPaths::findExecutable(u"script"_s);
        if (script.isEmpty())
            QSKIP("script(1) is needed to run the command on a terminal");
        QTemporaryFile input;
        QVERIFY(input.open());
        input.write("**bold** [x](http://e.x)\n");
        input.flush();
        const QString command =
            QStringLiteral("%1 ansi < %2")
                .arg(QStringLiteral(HALVENMARK_RENDER_DRIVER), input.fileName());
        for (const bool noColor : {false, true}) {
            QProcess process;
            QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
            env.remove(u"NO_COLOR"_s);
            if (noColor)
                env.insert(u"NO_COLOR"_s, u"1"_s);
            process.setProcessEnvironment(env);
            process.start(script, {u"-qec"_s, command, u"/dev/null"_s});
            QVERIFY(process.waitForFinished(60000));
            const QByteArray out = process.readAllStandardOutput();
            QCOMPARE(out.contains("\x1b[1mbold\x1b[0m"), !noColor);
            QCOMPARE(out.contains("\x1b]8;;http://e.x\x1b\\x"), !noColor);
            QCOMPARE(out.contains("x (http://e.x)"), noColor);
        }
    }
};

QTEST_GUILESS_MAIN(RenderCommandTest)
#include "markuprendertest.moc"
