// The outbox on disk: a change cut off at any byte loses nothing confirmed, and damaged files
// keep what they can.

#include "chat/outbox/chatoutbox.h"
#include "net/jsonrecord.h"
#include "support/testhome.h"
#include "text/l.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

const QString key = u"demo-project-7"_s;

OutboxTurn turn(int n, const QString &version = u"v1"_s, int pad = 0)
{
    return {u"turn-%1"_s.arg(n), u"%1:%2 "_s.arg(n).arg(version) + QString(pad, u'ж')};
}

// "1:v1 2:v3 [draft]": each queued turn's number and version, in order, then the composer.
QString summary(const OutboxState &s)
{
    QStringList out;
    for (const OutboxTurn &t : s.turns)
        out.append(t.text.section(u' ', 0, 0));
    if (s.composerText)
        out.append(u'[' + *s.composerText + u']');
    return out.join(u' ');
}

// Steps: a1 append turn 1, A1 append it again (v2), B1 append it too large for the journal,
// u1 update it (v3), r1 remove it, c=text set the composer (with a reply target), C clear it,
// n a fresh object, whose first change loads what is on disk.
void run(std::unique_ptr<ChatOutbox> &ob, const QString &script)
{
    const ChatMessage target = ChatMessage::make(u"assistant"_s, u"Task 4: which one?"_s, 1.5);
    for (const QString &op : script.split(u' ', Qt::SkipEmptyParts)) {
        const int n = op.mid(1).toInt();
        bool ok = true;
        switch (op.at(0).unicode()) {
        case 'a': ok = ob->append(turn(n)); break;
        case 'A': ok = ob->append(turn(n, u"v2"_s)); break;
        case 'B': ok = ob->append(turn(n, u"v1"_s, 70000)); break;
        case 'u': ok = ob->update(turn(n, u"v3"_s)); break;
        case 'r': ok = ob->remove(turn(n).id); break;
        case 'c': ok = ob->setComposer(op.mid(2), target); break;
        case 'C': ok = ob->setComposer(std::nullopt, std::nullopt); break;
        case 'n': ob = std::make_unique<ChatOutbox>(key); break;
        }
        QVERIFY2(ok, qPrintable(op));
    }
}

std::unique_ptr<ChatOutbox> after(const QString &script)
{
    std::unique_ptr<ChatOutbox> ob;
    run(ob, u"n "_s + script);
    return ob;
}

OutboxState reloaded()
{
    ChatOutbox ob(key);
    ob.load();
    return ob.state();
}

QByteArray readFile(const QString &name)
{
    QFile f(QDir(ChatOutbox::folderFor(key)).filePath(name));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeFile(const QString &name, const QByteArray &bytes)
{
    QFile f(QDir(ChatOutbox::folderFor(key)).filePath(name));
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size());
}

// One of two writers sharing the folder: appends turns "<tag>-0" … "<tag>-<count-1>".
int runAppender(const char *home, const char *tag, int count)
{
    qputenv("HALVENMARK_HOME", home);
    ChatOutbox ob(key);
    for (int i = 0; i < count; ++i) {
        if (!ob.append({u"%1-%2"_s.arg(QLatin1String(tag)).arg(i), QString(2000, u'x')}))
            return 2;
    }
    return 0;
}

} // namespace

class ChatOutboxTest : public QObject
{
    Q_OBJECT

    std::optional<TestHome> home;

private slots:
    void init() { home.reset(), home.emplace(); } // the old one ends first: the new one holds

    // Every key an older build wrote comes back unchanged; a damaged part alone is dropped.
    void records()
    {
        const QJsonObject whole = Decode::parse(R"({"id":"w","text":"line — שלום, привет 🎙",
            "fromVoice":true,"voiceReply":true,"replyID":"41","replyText":"q","replyRole":"bot",
            "created":1700000000.123456,"error":"e","failure":"refused","reason":"r","afterSeq":9007199254740991,"typed":"","geo":{},
            "files":[{"id":"a","name":"שם.pdf","mime":"image/png","fileID":"fa"}],"voicePeak":0,
            "voiceNote":{"id":"v","name":"v","mime":"audio/mp4","fileID":"fv"}})").toObject();
        QCOMPARE(OutboxTurn::fromJson(whole).toJson(), whole);

        for (const char *part : {"turn a lost its file 1", "turn a lost its location",
                                 "turn c lost its files", "turn c lost its voice note",
                                 "turns\\[1\\] dropped", "drafts dropped", "composer text dropped"})
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QString::fromUtf8(part)));
        const OutboxState s = OutboxState::fromJson(Decode::parse(R"({"turns":[
            {"id":"a","files":[{"id":"x"},{"id":3},{"id":"y"}],"geo":[32,34],"voiceNote":{}},
            {"id":"b","text":7}, {"id":"c","text":"hi","files":{"id":"x"},"voiceNote":"a.m4a"}],
            "drafts":"none","composerText":12,"replyTo":{"seq":3}})"));
        QCOMPARE(s.turns.size(), 2);
        QVERIFY(s.turns.at(0).files.size() == 2 && s.turns.at(0).voiceNote && !s.turns.at(0).geo);
        QVERIFY(s.turns.at(1).text == u"hi" && s.turns.at(1).files.isEmpty());
        QVERIFY(!s.turns.at(1).voiceNote && !s.composerText && s.replyTo);
    }

    // Each change, and a kill while it is written: its journal line torn, or its compaction
    // stopped at each step. The change is all there or not at all, and the outbox goes on.
    void change_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("turns");
        QTest::newRow("append") << "a1 a2" << "a3" << "1:v1 2:v1 3:v1";
        QTest::newRow("append again replaces in place") << "a1 a2" << "A1" << "1:v2 2:v1";
        QTest::newRow("update of a settled turn") << "a1 r1" << "u1" << "";
        QTest::newRow("remove") << "a1 a2 a3 r9" << "r2" << "1:v1 3:v1";
        QTest::newRow("removed and sent again goes last") << "a1 a2 r1" << "a1" << "2:v1 1:v1";
        QTest::newRow("composer emptied") << "a1 c=draft" << "c=" << "1:v1 []";
        QTest::newRow("composer cleared") << "c=draft a1" << "C" << "1:v1";
        QTest::newRow("fresh ones load first") << "a1 a2 n a3 r1 n u3" << "c=x" << "2:v1 3:v3 [x]";
        // Too large for the journal. A second replay of the removal and re-append would reorder.
        QTest::newRow("compaction") << "a1 a2 r1 a1 a3" << "B4" << "2:v1 1:v1 3:v1 4:v1";
    }

    void change()
    {
        QFETCH(QString, before);
        QFETCH(QString, change);
        auto ob = after(before);
        const OutboxState old = ob->state();
        const QByteArray s0 = readFile(u"state.json"_s), j0 = readFile(u"state.journal"_s);
        run(ob, change);
        const OutboxState changed = ob->state();
        QTEST(summary(changed), "turns");
        QCOMPARE(changed.replyTo.has_value(), changed.composerText.has_value());
        const QByteArray s1 = readFile(u"state.json"_s), j1 = readFile(u"state.journal"_s);
        const bool compacted = s1 != s0;
        QCOMPARE(compacted, change.startsWith(u'B'));
        // What the kill leaves: state.json, the journal, and whether the change is in.
        QList<std::tuple<QByteArray, QByteArray, bool>> left;
        for (qsizetype cut = j0.size(); !compacted && cut <= j1.size(); ++cut) {
            if (cut < j0.size() + 4 || cut > j1.size() - 4 || cut % 23 == 0)
                left.append({s0, j1.left(cut), cut == j1.size()});
        }
        if (compacted)
            left = {{s0, j0, false}, {s1, j0, true}, {s1, j1, true}};
        for (const auto &[s, j, in] : left) {
            writeFile(u"state.json"_s, s);
            writeFile(u"state.journal"_s, j);
            OutboxState want = in ? changed : old;
            QVERIFY2(reloaded() == want, qPrintable(QString::number(j.size())));
            // Loading folded the journal in: state.json alone, as an older build reads it, is
            // whole. A torn line is gone before the next change is written after it.
            QCOMPARE(OutboxState::fromJson(Decode::parse(readFile(u"state.json"_s))), want);
            QVERIFY(ChatOutbox(key).append(turn(9)));
            want.turns.append(turn(9));
            QCOMPARE(reloaded(), want);
        }
    }

    // state.json holds turn 1, the journal a2 a3 r2: a journal line or state.json is replaced.
    void damagedFiles_data()
    {
        QTest::addColumn<int>("line"); // -1: state.json
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("turns");
        QTest::addColumn<QString>("warning");
        QTest::addColumn<int>("lost");
        QTest::newRow("state cut short") << -1 << "{\"turns\":["_ba << "3:v1" << "json is damaged" << 0;
        // Every whole turn of a cut state.json is read back; the one cut through is counted.
        QTest::newRow("state cut inside a turn")
            << -1 << "{\"turns\":[{\"id\":\"turn-1\",\"text\":\"1:v1\"},{\"id\":\"turn-5\",\"te"_ba
            << "1:v1 3:v1" << "json is damaged" << 1;
        QTest::newRow("state not an object") << -1 << "[1,2]"_ba << "3:v1" << "json is damaged" << 0;
        // That build may have delivered what the journal holds: it is not sent twice.
        QTest::newRow("state rewritten by an older build")
            << -1 << R"({"turns":[{"id":"turn-9","text":"9:v1"}]})"_ba << "9:v1" << "" << 0;
        QTest::newRow("journal line") << 1 << "{\x01\xff"_ba << "1:v1 3:v1" << "line 2 is damaged" << 1;
        // A flipped byte in the header: its changes still count.
        QTest::newRow("journal header") << 0 << "{\"jou\x01"_ba << "1:v1 3:v1" << "header is damaged" << 0;
    }

    void damagedFiles()
    {
        QFETCH(int, line);
        QFETCH(QByteArray, bytes);
        QFETCH(QString, warning);
        after(u"a1 a2 a3 r2"_s);
        QList<QByteArray> lines = readFile(u"state.journal"_s).split('\n');
        lines.replace(std::max(line, 0), bytes);
        writeFile(line < 0 ? u"state.json"_s : u"state.journal"_s,
                  line < 0 ? bytes : lines.join('\n'));
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(warning));
        ChatOutbox loaded(key);
        loaded.load();
        const OutboxState got = loaded.state();
        QTEST(loaded.lost(), "lost");
        QTEST(summary(got), "turns");
        QCOMPARE(readFile(u"state-damaged.json"_s), warning.startsWith(u"json") ? bytes : ""_ba);
        QCOMPARE(reloaded(), got); // quietly, from the repaired files
    }

    // The disk fills up mid-change: nothing confirmed, nothing changed, and then it works again.
    void refusedWrites()
    {
        auto ob = after(u"a1 a2"_s);
        const OutboxState old = ob->state();
        const qint64 size = readFile(u"state.journal"_s).size();
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlim_t unlimited = std::exchange(limit.rlim_cur, size + 20);
        setrlimit(RLIMIT_FSIZE, &limit);
        for (int i = 0; i < 3; ++i)
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"journal write failed"_s));
        const bool refused = !ob->append(turn(3)) && !ob->remove(turn(1).id)
                             && !ob->setComposer(u"draft"_s, std::nullopt)
                             && !ob->append(turn(4, u"v1"_s, 70000)) // compacts instead
                             && !ob->writeData(u"d1"_s, QByteArray(70000, 'x'));
        limit.rlim_cur = unlimited;
        setrlimit(RLIMIT_FSIZE, &limit);
        QVERIFY(refused);
        QCOMPARE(ob->state(), old);
        QCOMPARE(readFile(u"state.journal"_s).size(), size); // the partial line was cut off
        QVERIFY(ob->append(turn(5)));
        QCOMPARE(summary(reloaded()), u"1:v1 2:v1 5:v1"_s);
    }

    // 200 sends: the journal is folded in before it grows past its bound.
    void boundedJournal()
    {
        ChatOutbox ob(key);
        for (int i = 0; i < 200; ++i)
            QVERIFY(ob.append(turn(i, u"v1"_s, 600)));
        QVERIFY(readFile(u"state.journal"_s).size() < 2 * 64 * 1024);
        QCOMPARE(reloaded().turns.size(), 200);
    }

    void dataFiles()
    {
        ChatOutbox ob(key);
        QCOMPARE(ob.dataPath(u"voice-1"_s), // in the folder other builds use: the key's SHA-256
                 home->path() + u"/chat-outbox/54bceb307e39581f07245075fb5be11b5e02bb0d31d4c8132"
                                "88ec5d33ff8f806/voice-1.data"_s);
        // Larger than one copied chunk, and not a multiple of it or of the pattern.
        const QByteArray big = QByteArray("0123456").repeated(460000);
        QVERIFY(ob.writeData(u"file-1"_s, big));
        QVERIFY(ob.copyData(u"file-2"_s, ob.dataPath(u"file-1"_s)));
        QCOMPARE(ob.readData(u"file-2"_s), std::optional<QByteArray>(big));
        for (const QString &bad : {u""_s, u".."_s, u"../escape"_s, u"a/b"_s}) {
            QVERIFY2(ob.dataPath(bad).isEmpty(), qPrintable(bad));
            QVERIFY(!ob.writeData(bad, "x") && !ob.copyData(bad, ob.dataPath(u"file-2"_s)));
        }

        QVERIFY(ob.append(turn(1)));
        ob.removeAll();
        QVERIFY(!QFileInfo::exists(ob.folder()));
        QVERIFY(ob.append(turn(2))); // not into the journal of the removed folder
        QCOMPARE(summary(reloaded()), u"2:v1"_s);
    }

    // Turns written before the failure kind was kept: the kind is worked out from the text
    // once, then stored. Whatever language the text was stored in, the turn shows ours in
    // today's language.
    void failureKindOfOlderFiles_data()
    {
        QTest::addColumn<QString>("error");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<QString>("display");
        const QString saved = u"Your message is saved on this device. Tap Retry on the message."_s;
        const QString unconfirmed = u"Message acceptance was not confirmed."_s;
        QTest::newRow("none") << QString() << int(TurnFailure::None) << QString() << QString()
                              << QString();
        QTest::newRow("offline, Russian")
            << u"Сообщение сохранено на этом устройстве. Нажмите «Повторить» на сообщении."_s
            << int(TurnFailure::Offline)
            << u"Сообщение сохранено на этом устройстве. Нажмите «Повторить» на сообщении."_s
            << QString() << saved;
        QTest::newRow("server's reason") << u"Nope."_s << int(TurnFailure::Refused) << saved
                                         << u"Nope."_s << saved;
        QTest::newRow("not confirmed, Hebrew") << u"השרת לא אישר את קבלת ההודעה."_s
                                               << int(TurnFailure::Refused)
                                               << u"השרת לא אישר את קבלת ההודעה."_s << QString()
                                               << unconfirmed;
    }

    void failureKindOfOlderFiles()
    {
        QFETCH(QString, error);
        QFETCH(int, kind);
        QFETCH(QString, shown);
        QFETCH(QString, reason);
        QFETCH(QString, display);
        L::set(u"en"_s);
        QDir().mkpath(ChatOutbox::folderFor(key));
        writeFile(u"state.json"_s, QJsonDocument(QJsonObject{{u"turns"_s, QJsonArray{QJsonObject{
                      {u"id"_s, u"old"_s}, {u"text"_s, u"hi"_s}, {u"error"_s, error}}}}})
                                       .toJson());
        const OutboxState s = reloaded();
        QCOMPARE(s.turns.size(), 1);
        QCOMPARE(int(s.turns.first().failure), kind);
        QCOMPARE(s.turns.first().error, shown);
        QCOMPARE(s.turns.first().reason, reason);
        QCOMPARE(s.turns.first().shownError(), display);
        const QJsonObject stored =
            QJsonDocument::fromJson(readFile(u"state.json"_s)).object()[u"turns"][0].toObject();
        QCOMPARE(stored.contains(u"failure"), kind != int(TurnFailure::None));
        QCOMPARE(stored[u"unconfirmed"].toBool(), display == u"Message acceptance was not confirmed."_s);
    }

    // Bytes no turn names (a kill between writing them and recording the turn) are swept.
    void strayFilesAreSwept()
    {
        ChatOutbox ob(key);
        OutboxTurn named = turn(1);
        named.files.append({u"f"_s, u"a.txt"_s, u"text/plain"_s, u"kept"_s});
        QVERIFY(ob.writeData(u"kept"_s, "a") && ob.writeData(u"stray"_s, "b"));
        QVERIFY(ob.append(named));
        const QDateTime now = QDateTime::currentDateTimeUtc(); // the files' own clock
        QCOMPARE(ob.sweep(std::chrono::hours(1), now), 0); // too young: maybe another process's
        QCOMPARE(ob.sweep(std::chrono::seconds(0), now.addSecs(1)), 1);
        QVERIFY(ob.readData(u"kept"_s) && !ob.readData(u"stray"_s));
    }

    // Two processes share one folder: every turn of both is kept, once, in each one's order.
    void twoWriters()
    {
        const int count = 120;
        QProcess a, b;
        for (auto [process, tag] : {std::pair{&a, "a"}, std::pair{&b, "b"}})
            process->start(QCoreApplication::applicationFilePath(),
                           {u"--outbox-appender"_s, home->path(), QString::fromLatin1(tag),
                            QString::number(count)});
        for (QProcess *process : {&a, &b}) {
            QVERIFY(process->waitForFinished(60000));
            QCOMPARE(process->exitCode(), 0);
        }
        QStringList got;
        for (const OutboxTurn &t : reloaded().turns)
            got.append(t.id);
        QCOMPARE(got.size(), 2 * count);
        for (const QString &tag : {u"a"_s, u"b"_s}) {
            const QStringList mine = got.filter(QRegularExpression(u"^"_s + tag + u"-"_s));
            QStringList expected;
            for (int i = 0; i < count; ++i)
                expected.append(u"%1-%2"_s.arg(tag).arg(i));
            QCOMPARE(mine, expected);
        }
    }

};

int main(int argc, char **argv)
{
    if (argc == 5 && qstrcmp(argv[1], "--outbox-appender") == 0)
        return runAppender(argv[2], argv[3], atoi(argv[4]));
    QCoreApplication app(argc, argv);
    ChatOutboxTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "chatoutboxtest.moc"
