// The terminal client's promises to scripts, each case a real client process against the
// reference service: the exit status of every outcome, and what help, suggestions and refusals
// say.

#include "support/clirun.h"
#include "support/service.h"
#include "support/testhome.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

class ContractTest : public QObject
{
    Q_OBJECT

    Service service;
    std::unique_ptr<TestHome> home;

    CliRun cli(const QStringList &args, const QByteArray &input = {})
    {
        QProcessEnvironment env = cliEnvironment(home->path(), service.base());
        // An editor that writes a line at the top of its file.
        env.insert(QStringLiteral("EDITOR"), QStringLiteral("sed -i 1ifrom-the-editor"));
        env.remove(QStringLiteral("VISUAL"));
        return runCli(QStringLiteral(HALVENMARK_CLI), args, env, input, 60'000);
    }

private slots:
    void initTestCase() { QVERIFY2(service.running(), "the reference service did not start"); }

    void init()
    {
        home.reset();
        home = std::make_unique<TestHome>();
        service.reset();
        service.control("POST", QStringLiteral("agent"), {{"step_delay", 0.01}});
    }

    void exitStatus_data()
    {
        QTest::addColumn<bool>("signedIn");
        QTest::addColumn<QString>("agent");      // the agent's mode
        QTest::addColumn<QJsonObject>("fault");  // in force from the first command on; or expire
        QTest::addColumn<QStringList>("before"); // run first, its status not looked at
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("said"); // on stderr

        const QJsonObject none;
        const QJsonObject refuse{{"match", "webapi/chat"},
                                 {"status", 403},
                                 {"body", R"({"error":"no","detail":"Not allowed."})"}};
        const QJsonObject unreachable{{"match", "webapi/chat"}, {"drop", true}, {"times", -1}};
        auto row = [&](const char *name, bool in, const QString &agent, const QJsonObject &fault,
                       const QStringList &before, const QStringList &args, const QByteArray &input,
                       int status, const QString &said) {
            QTest::newRow(name) << in << agent << fault << before << args << input << status
                                << said;
        };
        row("0 whoami", true, "normal", none, {}, {"whoami"}, {}, 0, "");
        row("0 text after --", true, "normal", none, {}, {"chat", "send", "--", "-5 degrees?"}, {},
            0, "");
        row("0 text from stdin", true, "normal", none, {}, {"chat", "send"}, "from a pipe\n", 0,
            "");
        row("0 reply waited for", true, "normal", none, {},
            {"chat", "send", "bus?", "--wait", "20"}, {}, 0, "Researcher");
        row("0 text from the editor", true, "normal", none, {}, {"chat", "send", "--edit"}, {}, 0,
            "");
        row("2 --edit with a text", true, "normal", none, {}, {"chat", "send", "--edit", "hi"}, {},
            2, "--edit");
        row("1 turn refused", true, "normal", refuse, {}, {"chat", "send", "x"}, {}, 1,
            "Not allowed.");
        row("1 run failed", true, "error", none, {}, {"chat", "send", "x", "--wait", "20"}, {}, 1,
            "The agent's run failed");
        row("1 drain leaves a turn for Retry", true, "normal", refuse, {"chat", "send", "x"},
            {"chat", "drain"}, {}, 1, "waiting for Retry 1");
        row("1 logout with unsent turns", true, "normal", unreachable, {"chat", "send", "x"},
            {"logout"}, {}, 1, "logout --yes");
        row("1 delete-account unconfirmed", true, "normal", none, {}, {"delete-account"}, {}, 1,
            "delete-account --yes");
        row("1 outbox id not unique", true, "normal", unreachable, {"chat", "send", "x"},
            {"chat", "outbox", "discard", ""}, {}, 1, "No turn");
        row("1 wrong password", false, "normal", none, {}, {"login", "--user", "demo"}, "guess\n",
            1, "Wrong user name or password.");
        row("1 page refused", true, "normal", none, {}, {"get", "webapi/nothing-here"}, {}, 1, "");
        row("1 sign-in after the account is deleted", true, "normal", none,
            {"delete-account", "--yes"}, {"login", "--user", "demo"}, "demo-password\n", 1, "");
        row("1 vault refused", true, "normal", {{"match", "webapi/vault"}, {"status", 500}}, {},
            {"vault", "list"}, {}, 1, "");
        row("2 unknown command", false, "normal", none, {}, {"fly"}, {}, 2, "Unknown command");
        row("2 nothing", false, "normal", none, {}, {}, {}, 2, "");
        row("2 unknown option", false, "normal", none, {}, {"whoami", "--wings"}, {}, 2, "");
        row("2 login without a name", false, "normal", none, {}, {"login"}, {}, 2, "");
        row("2 login with both", false, "normal", none, {},
            {"login", "--user", "a", "--token", "b"}, {}, 2, "");
        row("2 get without a path", false, "normal", none, {}, {"get"}, {}, 2, "");
        row("2 prefs set short", false, "normal", none, {}, {"prefs", "set", "lang"}, {}, 2, "");
        row("2 option not taken", false, "normal", none, {}, {"chat", "log", "--file", "a"}, {}, 2,
            "does not take --file");
        row("2 text starting with a dash", true, "normal", none, {}, {"chat", "send", "-5"}, {}, 2,
            "goes after --");
        row("2 empty message", true, "normal", none, {}, {"chat", "send", "-"}, "  \n", 2, "empty");
        row("2 bad --limit", true, "normal", none, {}, {"chat", "log", "--limit", "0"}, {}, 2,
            "--limit");
        row("3 not signed in", false, "normal", none, {}, {"chat", "log"}, {}, 3, "not signed in");
        row("3 after logout", true, "normal", none, {"logout"}, {"whoami"}, {}, 3, "");
        row("3 vault after the session ended", true, "normal", {{"expire", true}}, {},
            {"vault", "list"}, {}, 3, "");
        row("4 turn kept", true, "normal", unreachable, {}, {"chat", "send", "x"}, {}, 4,
            "kept in the outbox");
        row("4 page unreachable, nothing saved", true, "normal",
            {{"match", "webapi/projects"}, {"drop", true}, {"times", -1}}, {},
            {"get", "webapi/projects"}, {}, 4, "Cannot reach http://127.0.0.1:");
        row("4 vault unreachable", true, "normal",
            {{"match", "webapi/vault"}, {"drop", true}, {"times", 3}}, {}, {"vault", "list"}, {}, 4,
            "");
        row("4 drain offline", true, "normal", unreachable, {"chat", "send", "x"},
            {"chat", "drain"}, {}, 4, "kept for the network 1");
        row("5 answer not usable", true, "normal",
            {{"match", "webapi/me"}, {"status", 200}, {"body", "<html>"}, {"times", -1}}, {},
            {"whoami"}, {}, 5, "cannot be used");
        row("5 answer of the wrong types", true, "normal",
            {{"match", "webapi/me"}, {"status", 200}, {"body", R"({"authenticated":"yes"})"},
             {"times", -1}}, {}, {"whoami"}, {}, 5, "cannot be used");
        row("5 redirected elsewhere", true, "normal",
            {{"match", "webapi/me"}, {"status", 302}, {"times", -1},
             {"headers", QJsonObject{{"Location", "http://127.0.0.2:9/webapi/me"}}}}, {},
            {"whoami"}, {}, 5, "redirected");
        row("0 no answer: the saved profile", true, "normal",
            {{"match", "webapi/me"}, {"drop", true}, {"times", -1}}, {}, {"whoami"}, {}, 0,
            "Cannot reach the server: showing the saved profile.");
    }

    void exitStatus()
    {
        QFETCH(bool, signedIn);
        QFETCH(QString, agent);
        QFETCH(QJsonObject, fault);
        QFETCH(QStringList, before);
        QFETCH(QStringList, args);
        QFETCH(QByteArray, input);
        QFETCH(int, status);
        QFETCH(QString, said);
        if (signedIn)
            QCOMPARE(cli({"login", "--user", "demo"}, "demo-password\n").status, 0);
        service.control("POST", QStringLiteral("agent"), {{"mode", agent}});
        if (fault.value(u"expire").toBool())
            service.expire(QStringLiteral("demo"));
        else if (!fault.isEmpty())
            service.fault(fault);
        if (!before.isEmpty())
            cli(before);
        const CliRun run = cli(args, input);
        QVERIFY2(run.err.contains(said), qPrintable(run.err));
        QCOMPARE(run.status, status);
    }

    // --json of chat send: the turn, its seq and run, the reply once waited for.
    void sendJson()
    {
        QCOMPARE(cli({"login", "--user", "demo"}, "demo-password\n").status, 0);
        const CliRun run = cli({"chat", "send", "--json", "--wait", "20"}, "bus?");
        QCOMPARE(run.status, 0);
        const QJsonObject out = run.json();
        QVERIFY(!out.value(u"id").toString().isEmpty());
        QCOMPARE(out.value(u"user_seq").toInt(), 1);
        QVERIFY(out.value(u"run_id").toString().startsWith(u"run_"));
        QVERIFY(out.value(u"reply").toString().contains(u"bus times"));
        const QByteArray log = cli({"chat", "log", "--since", "1"}).out;
        QVERIFY2(log.startsWith("#2 ") && log.contains("task 1") && !log.contains("#1 "),
                 log.constData());
    }

    void helpAndSuggestions_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("said"); // on stdout when the status is 0, else on stderr
        QTest::newRow("help of a form")
            << QStringList{"help", "chat", "send"} << 0 << "halvenmark-cli chat send --edit";
        QTest::newRow("--help of a form")
            << QStringList{"chat", "log", "--help"} << 0 << "--since SEQ";
        QTest::newRow("help of a command lists its forms")
            << QStringList{"help", "call"} << 0 << "call threshold [DB]";
        QTest::newRow("help in Russian")
            << QStringList{"--lang", "ru", "help", "logout"} << 0 << "Примеры:";
        QTest::newRow("help in Hebrew")
            << QStringList{"help", "whoami", "--lang", "he"} << 0 << "שימוש:";
        QTest::newRow("summary") << QStringList{"help"} << 0 << "chat outbox";
        QTest::newRow("version") << QStringList{"--version"} << 0 << "halvenmark-cli 0.1.0 (build ";
        QTest::newRow("closest command") << QStringList{"wohami"} << 2 << "Did you mean whoami?";
        QTest::newRow("closest subcommand")
            << QStringList{"chat", "sned", "hi"} << 2 << "Did you mean chat send?";
        QTest::newRow("closest option")
            << QStringList{"chat", "log", "--limt", "3"} << 2 << "Did you mean --limit?";
        QTest::newRow("a start is close") << QStringList{"del"} << 2 << "delete-account";
        QTest::newRow("nothing close") << QStringList{"zzzzzz"} << 2 << "Help: halvenmark-cli help";
        QTest::newRow("refused in Russian") << QStringList{"--lang", "ru", "whoami", "--wait", "3"}
                                            << 2 << "whoami не принимает --wait";
        QTest::newRow("other helpers' options are taken")
            << QStringList{"call", "prefs", "--voice", "v", "--help"} << 0 << "--provider P";
        QTest::newRow("an option of another form")
            << QStringList{"call", "status", "--seconds", "3"} << 2
            << "call status does not take --seconds";
    }

    void helpAndSuggestions()
    {
        QFETCH(QStringList, args);
        QFETCH(int, status);
        QFETCH(QString, said);
        const CliRun run = cli(args);
        QCOMPARE(run.status, status);
        const QString shown = status == 0 ? QString::fromUtf8(run.out) : run.err;
        QVERIFY2(shown.contains(said), qPrintable(shown));
    }
};

QTEST_GUILESS_MAIN(ContractTest)
#include "contracttest.moc"
