// The outbox on disk: every change survives a reload, a kill at any point loses nothing
// confirmed and applies nothing twice, damaged files keep what they can, and n sends cost
// bytes linear in n.

#include "chat/chatoutbox.h"
#include "support/testhome.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <csignal>
#include <cstdio>
#include <limits>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::optional<QString>)

namespace {

const QString key = u"demo-project-7"_s;

OutboxTurn turn(int n, const QString &version = u"v1"_s, int pad = 0)
{
    OutboxTurn t{u"turn-%1"_s.arg(n), u"%1:%2 "_s.arg(n).arg(version) + QString(pad, u'ж')};
    t.created = 1700000000.25 + n;
    t.afterSeq = n;
    t.files = {{u"f%1"_s.arg(n), u"photo.jpg"_s, u"image/jpeg"_s, u"data-%1"_s.arg(n)}};
    return t;
}

// "1:v1 2:v3": each queued turn's number and version, in order.
QString summary(const OutboxState &s)
{
    QStringList out;
    for (const OutboxTurn &t : s.turns)
        out.append(t.text.section(u' ', 0, 0));
    return out.join(u' ');
}

// Steps: a1 append turn 1, A1 append it again (v2), u1 update it (v3), r1 remove it,
// c=text set the composer (with a reply target), c- clear it, n a fresh object that has not
// loaded, L a fresh object that has.
void run(std::unique_ptr<ChatOutbox> &ob, const QString &script)
{
    ChatMessage target = ChatMessage::make(u"assistant"_s, u"Task 4: which one?"_s, 1.5);
    target.seq = 5;
    for (const QString &op : script.split(u' ', Qt::SkipEmptyParts)) {
        const int n = op.mid(1).toInt();
        bool ok = true;
        switch (op.at(0).unicode()) {
        case 'a': ok = ob->append(turn(n)); break;
        case 'A': ok = ob->append(turn(n, u"v2"_s)); break;
        case 'u': ok = ob->update(turn(n, u"v3"_s)); break;
        case 'r': ok = ob->remove(turn(n).id); break;
        case 'c':
            ok = op == u"c-" ? ob->setComposer(std::nullopt, std::nullopt)
                             : ob->setComposer(op.mid(2), target);
            break;
        case 'n': ob = std::make_unique<ChatOutbox>(key); break;
        case 'L':
            ob = std::make_unique<ChatOutbox>(key);
            ob->load();
            break;
        }
        QVERIFY2(ok, qPrintable(op));
    }
}

std::unique_ptr<ChatOutbox> after(const QString &script)
{
    auto ob = std::make_unique<ChatOutbox>(key);
    ob->load();
    run(ob, script);
    return ob;
}

OutboxState reloaded()
{
    ChatOutbox ob(key);
    ob.load();
    return ob.state();
}

QString inFolder(const QString &name)
{
    return QDir(ChatOutbox::folderFor(key)).filePath(name);
}

QByteArray readFile(const QString &name)
{
    QFile f(inFolder(name));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeFile(const QString &name, const QByteArray &bytes)
{
    QFile f(inFolder(name));
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(f.write(bytes), bytes.size());
}

// The killed writer: step k appends turn k, then removes turn k-3, and prints a line after
// each change returns true.
constexpr int writerPad = 1500;

int runWriter(const char *home)
{
    qputenv("HALVENMARK_HOME", home);
    ChatOutbox ob(key);
    ob.load();
    for (int k = 0; k < 5000; ++k) {
        if (!ob.append(turn(k, u"v1"_s, writerPad)))
            return 2;
        std::printf("ok\n");
        std::fflush(stdout);
        if (k >= 3 && !ob.remove(turn(k - 3).id))
            return 2;
        if (k >= 3) {
            std::printf("ok\n");
            std::fflush(stdout);
        }
    }
    return 0;
}

QStringList writerQueueAfter(int changes)
{
    QStringList ids;
    for (int done = 0, k = 0; done < changes; ++k) {
        ids.append(turn(k).id);
        if (++done < changes && k >= 3) {
            ids.removeOne(turn(k - 3).id);
            ++done;
        }
    }
    return ids;
}

} // namespace

class ChatOutboxTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;

private slots:
    void init()
    {
        home.reset(); // the old home ends first, so the new one stays in force
        home = std::make_unique<TestHome>();
    }

    void folderName()
    {
        const QString folder = QDir(home->path()).filePath(
            u"chat-outbox/2540e54285a34c88b0f4ac412ea5b0fb08000b389ce19cc1f81e52d0f9dce719"_s);
        ChatOutbox ob(u"main-project-7"_s);
        QCOMPARE(ob.folder(), folder);
        ob.load();
        QVERIFY(!QFileInfo::exists(folder)); // opening a conversation writes nothing
        QVERIFY(ob.append(turn(1)));
        QVERIFY(QFileInfo::exists(folder + u"/state.json"_s));
    }

    void reload_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("turns");
        QTest::addColumn<std::optional<QString>>("composer");
        const std::optional<QString> none;
        const auto text = [](const char *s) { return std::optional<QString>(s); };
        QTest::newRow("append") << "a1 a2 a3" << "1:v1 2:v1 3:v1" << none;
        QTest::newRow("append again replaces in place") << "a1 a2 A1" << "1:v2 2:v1" << none;
        QTest::newRow("update") << "a1 a2 u2" << "1:v1 2:v3" << none;
        QTest::newRow("update of a settled turn") << "a1 r1 u1" << "" << none;
        QTest::newRow("remove") << "a1 a2 a3 r2 r9" << "1:v1 3:v1" << none;
        QTest::newRow("removed and sent again goes last") << "a1 a2 r1 a1" << "2:v1 1:v1" << none;
        QTest::newRow("composer") << "a1 c=draft" << "1:v1" << text("draft");
        QTest::newRow("composer emptied") << "c=draft c=" << "" << text("");
        QTest::newRow("composer cleared") << "c=draft a1 c-" << "1:v1" << none;
        QTest::newRow("change before load") << "a1 a2 n a3" << "1:v1 2:v1 3:v1" << none;
        QTest::newRow("reloads between") << "a1 a2 L r1 a3 L u3 c=x" << "2:v1 3:v3" << text("x");
    }

    void reload()
    {
        QFETCH(QString, script);
        const auto ob = after(script);
        QTEST(summary(ob->state()), "turns");
        QTEST(ob->state().composerText, "composer");
        QCOMPARE(ob->state().replyTo.has_value(), ob->state().composerText.has_value());
        QCOMPARE(reloaded(), ob->state());
        // Loading folded the journal in: state.json alone, as an older build reads it, is whole.
        const QJsonObject state = QJsonDocument::fromJson(readFile(u"state.json"_s)).object();
        QCOMPARE(OutboxState::fromJson(state), ob->state());
    }

    // Killed during a journal append, at the bytes that matter: the change is all there or
    // not at all, and the outbox goes on working.
    void tornJournal_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("change");
        QTest::newRow("append") << "a1 a2" << "a3";
        QTest::newRow("append again") << "a1 a2" << "A1";
        QTest::newRow("update") << "a1 a2" << "u1";
        QTest::newRow("remove") << "a1 a2" << "r1";
        QTest::newRow("composer") << "a1" << "c=draft";
    }

    void tornJournal()
    {
        QFETCH(QString, before);
        QFETCH(QString, change);
        auto ob = after(before);
        const OutboxState old = ob->state();
        const QByteArray state = readFile(u"state.json"_s);
        const qsizetype from = readFile(u"state.journal"_s).size();
        run(ob, change);
        const OutboxState changed = ob->state();
        const QByteArray journal = readFile(u"state.journal"_s);
        ob.reset();
        QCOMPARE(readFile(u"state.json"_s), state); // the change went to the journal alone
        const qsizetype to = journal.size();
        for (qsizetype cut = from; cut <= to; ++cut) {
            if (cut > from + 3 && cut < to - 3 && (cut - from) % 23 != 0)
                continue;
            writeFile(u"state.json"_s, state);
            writeFile(u"state.journal"_s, journal.left(cut));
            QVERIFY2(reloaded() == (cut == to ? changed : old), qPrintable(QString::number(cut)));
        }
        // The torn line is gone before the next change is written after it.
        writeFile(u"state.json"_s, state);
        writeFile(u"state.journal"_s, journal.left(to - 2));
        ChatOutbox next(key);
        QVERIFY(next.append(turn(9)));
        QVERIFY(next.setComposer(u"after"_s, std::nullopt));
        QCOMPARE(summary(reloaded()), summary(old) + u" 9:v1"_s);
        QCOMPARE(reloaded(), next.state());
    }

    // A compaction killed at each step. The journal holds a removal and a re-append, which a
    // second replay would reorder.
    void compactionKilled_data()
    {
        QTest::addColumn<bool>("newState");
        QTest::addColumn<bool>("newJournal");
        QTest::newRow("while writing state.json") << false << false;
        QTest::newRow("after state.json, before the journal") << true << false;
        QTest::newRow("after both") << true << true;
    }

    void compactionKilled()
    {
        QFETCH(bool, newState);
        QFETCH(bool, newJournal);
        auto ob = after(u"a1 a2 r1 a1 a3"_s);
        const OutboxState old = ob->state();
        const QByteArray oldState = readFile(u"state.json"_s);
        const QByteArray oldJournal = readFile(u"state.journal"_s);
        QVERIFY(ob->append(turn(4, u"v1"_s, 70000))); // too large for the journal
        const OutboxState changed = ob->state();
        const QByteArray state = readFile(u"state.json"_s);
        const QByteArray journal = readFile(u"state.journal"_s);
        ob.reset();
        QVERIFY(state != oldState && journal != oldJournal);

        writeFile(u"state.json"_s, newState ? state : oldState);
        writeFile(u"state.journal"_s, newJournal ? journal : oldJournal);
        if (!newState) // the temporary file of the interrupted write
            writeFile(u"state.json.Xb12Qz"_s, state.left(state.size() / 2));
        const OutboxState got = reloaded();
        QCOMPARE(summary(got), newState ? u"2:v1 1:v1 3:v1 4:v1"_s : u"2:v1 1:v1 3:v1"_s);
        QCOMPARE(got, newState ? changed : old);
    }

    // The journal is all that is left: what it recorded comes back, the damaged file is kept.
    void damagedState_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("cut short") << QByteArray("{\"turns\":[{\"id\":\"turn-1\",\"text\":\"1:v");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("not an object") << QByteArray("[1,2]");
    }

    void damagedState()
    {
        QFETCH(QByteArray, bytes);
        after(u"a1 a2 a3 r2"_s);
        writeFile(u"state.json"_s, bytes);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"state.json is damaged"_s));
        const OutboxState got = reloaded();
        QCOMPARE(summary(got), u"3:v1"_s); // turn 1 was only in state.json
        QCOMPARE(readFile(u"state-damaged.json"_s), bytes);
        QCOMPARE(reloaded(), got); // quietly, from the repaired files
    }

    void damagedJournalLine()
    {
        after(u"a1 a2 a3 r1"_s);
        QList<QByteArray> lines = readFile(u"state.journal"_s).split('\n');
        QCOMPARE(lines.size(), 5); // header, a2, a3, r1, and nothing after the last newline
        lines[2] = lines[2].left(30) + "\x01\xff garbage";
        writeFile(u"state.journal"_s, lines.join('\n'));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"journal line 3 is damaged"_s));
        QCOMPARE(summary(reloaded()), u"2:v1"_s);
    }

    void refusedWrites()
    {
        // The folder cannot be made: a file is in its place.
        QVERIFY(QDir().mkpath(home->path() + u"/chat-outbox"_s));
        QFile(ChatOutbox::folderFor(key)).open(QIODevice::WriteOnly);
        {
            ChatOutbox ob(key);
            QVERIFY(!ob.append(turn(1)));
            QVERIFY(!ob.setComposer(u"draft"_s, std::nullopt));
            QVERIFY(!ob.writeData(u"d1"_s, "bytes"));
            QCOMPARE(ob.state(), OutboxState{});
        }
        QVERIFY(QFile::remove(ChatOutbox::folderFor(key)));

        // The disk fills up in the middle of a journal line.
        auto ob = after(u"a1 a2"_s);
        const OutboxState old = ob->state();
        const qint64 size = readFile(u"state.journal"_s).size();
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlim_t unlimited = limit.rlim_cur;
        limit.rlim_cur = size + 20;
        setrlimit(RLIMIT_FSIZE, &limit);
        for (int i = 0; i < 3; ++i)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"journal write failed"_s));
        const bool refused = !ob->append(turn(3)) && !ob->remove(turn(1).id)
                             && !ob->setComposer(u"draft"_s, std::nullopt);
        limit.rlim_cur = unlimited;
        setrlimit(RLIMIT_FSIZE, &limit);
        QVERIFY(refused);
        QCOMPARE(ob->state(), old);
        QCOMPARE(readFile(u"state.journal"_s).size(), size); // the partial line was cut off
        QVERIFY(ob->append(turn(4)));

        // A value JSON cannot carry exactly is refused, not thrown at the caller.
        OutboxTurn odd = turn(5);
        odd.afterSeq = std::numeric_limits<qint64>::max();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"cannot be stored"_s));
        QVERIFY(!ob->append(odd));
        QCOMPARE(summary(reloaded()), u"1:v1 2:v1 4:v1"_s);
    }

    // 200 sends and 100 settlements cost bytes linear in n, not n².
    void linearBytes()
    {
        ChatOutbox ob(key);
        qint64 recordBytes = 0;
        for (int i = 0; i < 200; ++i) {
            const OutboxTurn t = turn(i, u"v1"_s, 600);
            recordBytes += QJsonDocument(t.toJson()).toJson(QJsonDocument::Compact).size();
            QVERIFY(ob.append(t));
            QVERIFY(readFile(u"state.journal"_s).size()
                    <= std::max<qint64>(readFile(u"state.json"_s).size(), 64 * 1024));
        }
        for (int i = 0; i < 200; i += 2)
            QVERIFY(ob.remove(turn(i).id));
        // A whole rewrite each time would be about a hundred times the records.
        QVERIFY2(ob.bytesWritten() < 4 * recordBytes,
                 qPrintable(QString::number(ob.bytesWritten())));
        QCOMPARE(reloaded().turns.size(), 100);
        QCOMPARE(reloaded(), ob.state());
    }

    void dataFiles()
    {
        ChatOutbox ob(key);
        // Larger than one copied chunk, and not a multiple of it.
        QByteArray big(3 * 1024 * 1024 + 17, Qt::Uninitialized);
        for (qsizetype i = 0; i < big.size(); ++i)
            big[i] = char((i * 7919) >> 3);
        const QString source = home->path() + u"/picked.bin"_s;
        QFile picked(source);
        QVERIFY(picked.open(QIODevice::WriteOnly) && picked.write(big) == big.size());
        picked.close();
        QVERIFY(ob.copyData(u"file-2"_s, source));
        QCOMPARE(ob.readData(u"file-2"_s), std::optional<QByteArray>(big));
        QVERIFY(!ob.copyData(u"file-3"_s, source + u".missing"_s));
        QVERIFY(!QFileInfo::exists(ob.dataPath(u"file-3"_s)));

        QVERIFY(ob.writeData(u"voice-1"_s, "RIFF"));
        QCOMPARE(ob.dataPath(u"voice-1"_s), ob.folder() + u"/voice-1.data"_s);
        QCOMPARE(ob.readData(u"voice-1"_s), std::optional<QByteArray>("RIFF"));
        ob.removeData(u"voice-1"_s);
        QVERIFY(!ob.readData(u"voice-1"_s) && ob.readData(u"file-2"_s));

        for (const QString &bad : {u""_s, u".."_s, u"../escape"_s, u"a/b"_s}) {
            QVERIFY2(ob.dataPath(bad).isEmpty(), qPrintable(bad));
            QVERIFY(!ob.writeData(bad, "x") && !ob.copyData(bad, source));
        }
        QVERIFY(!QFileInfo::exists(ob.folder() + u"/../escape.data"_s));

        QVERIFY(ob.append(turn(1)));
        ob.removeAll();
        QVERIFY(!QFileInfo::exists(ob.folder()));
        QCOMPARE(ob.state(), OutboxState{});
        QCOMPARE(reloaded(), OutboxState{});
        QVERIFY(ob.append(turn(2)));
        QCOMPARE(summary(reloaded()), u"2:v1"_s);
    }

    // A real process killed while it writes, at several moments: every confirmed change is on
    // disk, at most the one in progress besides, and nothing is doubled.
    void killedWriter_data()
    {
        QTest::addColumn<int>("confirmed");
        for (int n : {1, 9, 60, 170})
            QTest::addRow("after %d", n) << n;
    }

    void killedWriter()
    {
        QFETCH(int, confirmed);
        QProcess writer;
        writer.start(QCoreApplication::applicationFilePath(), {u"--outbox-writer"_s, home->path()});
        int seen = 0;
        while (seen < confirmed) {
            if (!writer.canReadLine() && !writer.waitForReadyRead(20000))
                QFAIL(qPrintable(u"writer stopped: "_s + writer.readAllStandardError()));
            while (writer.canReadLine() && seen < confirmed)
                seen += writer.readLine() == "ok\n";
        }
        writer.kill();
        QVERIFY(writer.waitForFinished());
        while (writer.canReadLine())
            seen += writer.readLine() == "ok\n";

        QStringList ids;
        for (const OutboxTurn &t : reloaded().turns) {
            ids.append(t.id);
            QCOMPARE(t, turn(t.id.section(u'-', 1).toInt(), u"v1"_s, writerPad));
        }
        QVERIFY2(ids == writerQueueAfter(seen) || ids == writerQueueAfter(seen + 1),
                 qPrintable(u"%1 confirmed, found %2"_s.arg(seen).arg(ids.join(u' '))));
    }
};

int main(int argc, char **argv)
{
    if (argc == 3 && qstrcmp(argv[1], "--outbox-writer") == 0)
        return runWriter(argv[2]);
    QCoreApplication app(argc, argv);
    ChatOutboxTest test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "chatoutboxtest.moc"
