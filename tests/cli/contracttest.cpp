// The terminal client's promises to scripts, each case a real client process against the
// reference service: the exit status of every outcome, and what help, suggestions and refusals
// say.

#include "support/clirun.h"
#include "support/service.h"
#include "support/testhome.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

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

        const QJsonObject refuse{{"match", "webapi/chat"},
                                 {"status", 403},
                                 {"body", R"({"error":"no","detail":"Not allowed."})"}};
        const QJsonObject unreachable{{"match", "webapi/chat"}, {"drop", true}, {"times", -1}};
        // Signed in, the agent normal, nothing in force unless a row says so.
        struct With {
            bool in = true;
            QString agent = u"normal"_s;
            QJsonObject fault;
            QStringList before;
            QByteArray input;
        };
        const With out{.in = false};
        auto row = [](const char *name, int status, const QStringList &args,
                      const QString &said = {}, const With &with = {}) {
            QTest::newRow(name) << with.in << with.agent << with.fault << with.before << args
                                << with.input << status << said;
        };
        auto dropped = [](const char *path, int times = -1) {
            return QJsonObject{{"match", path}, {"drop", true}, {"times", times}};
        };
        auto answered = [](const char *body) {
            return QJsonObject{{"match", "webapi/me"}, {"status", 200}, {"body", body},
                               {"times", -1}};
        };
        row("0 whoami", 0, {"whoami"});
        row("0 text after --", 0, {"chat", "send", "--", "-5 degrees?"});
        row("0 text from stdin", 0, {"chat", "send"}, "", {.input = "from a pipe\n"});
        row("0 reply waited for", 0, {"chat", "send", "bus?", "--wait", "20"}, "Researcher");
        row("0 text from the editor", 0, {"chat", "send", "--edit"});
        row("2 --edit with a text", 2, {"chat", "send", "--edit", "hi"}, "--edit");
        row("1 turn refused", 1, {"chat", "send", "x"}, "Not allowed.", {.fault = refuse});
        row("1 run failed", 1, {"chat", "send", "x", "--wait", "20"}, "The agent's run failed",
            {.agent = u"error"_s});
        row("1 drain leaves a turn for Retry", 1, {"chat", "drain"}, "waiting for Retry 1",
            {.fault = refuse, .before = {"chat", "send", "x"}});
        row("1 logout with unsent turns", 1, {"logout"}, "logout --yes",
            {.fault = unreachable, .before = {"chat", "send", "x"}});
        row("1 delete-account unconfirmed", 1, {"delete-account"}, "delete-account --yes");
        row("1 outbox id not unique", 1, {"chat", "outbox", "discard", ""}, "No turn",
            {.fault = unreachable, .before = {"chat", "send", "x"}});
        row("1 wrong password", 1, {"login", "--user", "demo"}, "Wrong user name or password.",
            {.in = false, .input = "guess\n"});
        row("1 page refused", 1, {"get", "webapi/nothing-here"});
        row("1 sign-in after the account is deleted", 1, {"login", "--user", "demo"}, "",
            {.before = {"delete-account", "--yes"}, .input = "demo-password\n"});
        row("1 vault refused", 1, {"vault", "list"}, "",
            {.fault = {{"match", "webapi/vault"}, {"status", 500}}});
        row("2 unknown command", 2, {"fly"}, "Unknown command", out);
        row("2 nothing", 2, {}, "", out);
        row("2 unknown option", 2, {"whoami", "--wings"}, "", out);
        row("2 login without a name", 2, {"login"}, "", out);
        row("2 login with both", 2, {"login", "--user", "a", "--token", "b"}, "", out);
        row("2 get without a path", 2, {"get"}, "", out);
        row("2 prefs set short", 2, {"prefs", "set", "lang"}, "", out);
        row("2 option not taken", 2, {"chat", "log", "--file", "a"}, "does not take --file", out);
        row("2 text starting with a dash", 2, {"chat", "send", "-5"}, "goes after --");
        row("2 empty message", 2, {"chat", "send", "-"}, "empty", {.input = "  \n"});
        row("2 bad --limit", 2, {"chat", "log", "--limit", "0"}, "--limit");
        row("3 not signed in", 3, {"chat", "log"}, "not signed in", out);
        row("3 after logout", 3, {"whoami"}, "", {.before = {"logout"}});
        row("3 vault after the session ended", 3, {"vault", "list"}, "",
            {.fault = {{"expire", true}}});
        row("4 turn kept", 4, {"chat", "send", "x"}, "kept in the outbox", {.fault = unreachable});
        row("4 page unreachable, nothing saved", 4, {"get", "webapi/projects"},
            "Cannot reach http://127.0.0.1:", {.fault = dropped("webapi/projects")});
        row("4 vault unreachable", 4, {"vault", "list"}, "", {.fault = dropped("webapi/vault", 3)});
        row("4 drain offline", 4, {"chat", "drain"}, "kept for the network 1",
            {.fault = unreachable, .before = {"chat", "send", "x"}});
        row("5 answer not usable", 5, {"whoami"}, "cannot be used", {.fault = answered("<html>")});
        row("5 answer of the wrong types", 5, {"whoami"}, "cannot be used",
            {.fault = answered(R"({"authenticated":"yes"})")});
        const QJsonObject elsewhere{
            {"match", "webapi/me"}, {"status", 302}, {"times", -1},
            {"headers", QJsonObject{{"Location", "http://127.0.0.2:9/webapi/me"}}}};
        row("5 redirected elsewhere", 5, {"whoami"}, "redirected", {.fault = elsewhere});
        row("0 no answer: the saved profile", 0, {"whoami"},
            "Cannot reach the server: showing the saved profile.", {.fault = dropped("webapi/me")});
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
        auto row = [](const char *name, const QString &args, int status, const char *said) {
            QTest::newRow(name) << args.split(u' ') << status << QString::fromUtf8(said);
        };
        row("help of a form", u"help chat send"_s, 0, "halvenmark-cli chat send --edit");
        row("--help of a form", u"chat log --help"_s, 0, "--since SEQ");
        row("help of a command lists its forms", u"help call"_s, 0, "call threshold [DB]");
        row("help in Russian", u"--lang ru help logout"_s, 0, "Примеры:");
        row("help in Hebrew", u"help whoami --lang he"_s, 0, "שימוש:");
        row("summary", u"help"_s, 0, "chat outbox");
        row("version", u"--version"_s, 0, "halvenmark-cli 0.1.0 (build ");
        row("closest command", u"wohami"_s, 2, "Did you mean whoami?");
        row("closest subcommand", u"chat sned hi"_s, 2, "Did you mean chat send?");
        row("closest option", u"chat log --limt 3"_s, 2, "Did you mean --limit?");
        row("a start is close", u"del"_s, 2, "delete-account");
        row("nothing close", u"zzzzzz"_s, 2, "Help: halvenmark-cli help");
        row("refused in Russian", u"--lang ru whoami --wait 3"_s, 2, "whoami не принимает --wait");
        row("other helpers' options are taken", u"call prefs --voice v --help"_s, 0, "--provider P");
        row("an option of another form", u"call status --seconds 3"_s, 2,
            "call status does not take --seconds");
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
