// halvenmark-cli: the terminal client.

#include "callcommands.h"
#include "chatcommands.h"
#include "clivitals.h"
#include "debugcommands.h"
#include "console.h"
#include "healthcommands.h"
#include "invocation.h"
#include "outcome.h"
#include "pagecommands.h"
#include "pushcommands.h"
#include "render.h"
#include "sessioncommands.h"
#include "vaultcommands.h"

using namespace Qt::StringLiterals;

#include "app/crash.h"
#include "net/api.h"
#include "platform/secretstore.h"
#include "chat/chatbackgroundtransfer.h"
#include "chat/chatstore.h"
#include "session/session.h"
#include "text/l.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QRegularExpression>
#include <QCoroTask>
#include <QTimer>

#include <functional>
#include <map>

namespace {

using Command = std::function<QCoro::Task<int>(Invocation)>;

const std::map<QString, Command> &commands()
{
    static const std::map<QString, Command> table = {
        {u"login"_s, SessionCommands::login},
        {u"whoami"_s, SessionCommands::whoami},
        {u"logout"_s, SessionCommands::logout},
        {u"delete-account"_s, SessionCommands::deleteAccount},
        {u"prefs"_s, SessionCommands::prefs},
        {u"get"_s, PageCommands::get},
        {u"watch"_s, PageCommands::watch},
        {u"lang"_s, SessionCommands::lang},
        {u"chat"_s, ChatCommands::chat},
        {u"push"_s, PushCommands::push},
        {u"debug"_s, DebugCommands::debug},
        {u"health"_s, HealthCommands::health},
        {u"vault"_s, VaultCommands::vault},
        {u"call"_s, CallCommands::call},
    };
    return table;
}

QString summary()
{
    return L::t(
        u"פקודות:\n"
        "  login --user NAME | --token TOKEN   כניסה (הסיסמה מהקלט)\n"
        "  whoami [--json]                     מי מחובר\n"
        "  get PATH                            דף מהשרת, דרך המטמון\n"
        "  watch PATH [--every SECONDS]        דף על המסך, מתעדכן כשהוא משתנה\n"
        "  lang [set he|en|ru]                 שפת הממשק\n"
        "  chat log [--project N] [--json]     השיחה עם הסוכן\n"
        "  chat follow [--project N]           עבודת הסוכן בזמן אמת\n"
        "  chat send TEXT [--file PATH]... [--reply-to SEQ] [--wait SECONDS]\n"
        "                                      שליחת הודעה (נשמרת קודם במכשיר)\n"
        "  chat outbox [--json] | chat drain   הודעות שממתינות לשליחה; שליחתן\n"
        "  chat retry ID | chat stop N         ניסיון חוזר; עצירת משימה\n"
        "  chat play SEQ [--output FILE] [--rate R]  הקול של הודעה, או לקובץ WAV\n"
        "  chat send --voice FILE.wav          שליחת הקלטה כהודעה קולית\n"
        "  chat record [--seconds S]           הקלטה מהמיקרופון ושליחה (Enter או Ctrl-C עוצרים)\n"
        "  chat transcribe FILE.wav            מה השרת שמע בהקלטה\n"
        "  chat                                שיחה אינטראקטיבית\n"
        "  render [--html | --ansi | --plain] טקסט של הודעה מהקלט, כפי שהוא מוצג\n"
        "  prefs [set KEY VALUE]               העדפות בשרת\n"
        "  health [--json]                     סיכום הבריאות מהשרת\n"
        "  health import FILE                  קישור וסנכרון מייצוא export.xml של הטלפון\n"
        "  health disconnect [--forget]        ניתוק (‎--forget‎ מוחק גם מהשרת)\n"
        "  vault list [--json] | vault generate  הכספת (בלי סודות); סיסמה חדשה\n"
        "  vault reveal ID | vault copy ID     סוד אחד, אחרי סיסמת חשבון המערכת\n"
        "  vault add KIND --title T [--field KEY=VALUE]... [--primary] | vault rm ID\n"
        "                                      הוספה (VALUE ‎-‎ נקרא מהקלט); מחיקה\n"
        "  logout [--force]                    יציאה\n"
        "  delete-account                      מחיקת החשבון\n"
        "  push status [--json] | push test    בדיקת ההתראות; התראת בדיקה\n"
        "  call [--input FILE.wav] [--output FILE.wav] [--seconds S] [--json]\n"
        "                                      שיחה קולית חיה עם הסוכן\n"
        "  call status | journal [--json] | memory  זמינות; יומן השיחות; איחוד הזיכרון\n"
        "  call prefs [--voice V] [--language L] [--provider P] | call threshold [DB]\n"
        "                                      העדפות הקול; סף ההפרעה\n"
        "  debug crash SIGNAL | debug hang SECONDS | debug report\n"
        "                                      למפתחים: קריסה, תקיעה, שליחת הדוחות\n"
        "\n"
        "קוד יציאה: 0 הצלחה, 1 השרת סירב, 2 שימוש שגוי, 3 לא מחוברים,\n"
        "4 אין חיבור לשרת ואין עותק שמור.\n"
        "סביבה: HALVENMARK_SERVER (כתובת השרת), HALVENMARK_HOME (תיקיית הנתונים)."_s,
        u"Commands:\n"
        "  login --user NAME | --token TOKEN   sign in (password from stdin)\n"
        "  whoami [--json]                     who is signed in\n"
        "  get PATH                            a server page, through the page cache\n"
        "  watch PATH [--every SECONDS]        keep a page on screen, redrawn when it changes\n"
        "  lang [set he|en|ru]                 the interface language\n"
        "  chat log [--project N] [--json]     the conversation with the agent\n"
        "  chat follow [--project N]           the agent's work, live\n"
        "  chat send TEXT [--file PATH]... [--reply-to SEQ] [--wait SECONDS]\n"
        "                                      send a turn (kept on this device first)\n"
        "  chat outbox [--json] | chat drain   turns waiting to go out; send them\n"
        "  chat retry ID | chat stop N         try a turn again; stop a task\n"
        "  chat play SEQ [--output FILE] [--rate R]  a message's voice, or into a WAV file\n"
        "  chat send --voice FILE.wav          a recording sent as a voice message\n"
        "  chat record [--seconds S]           record from the microphone and send (Enter or Ctrl-C stops)\n"
        "  chat transcribe FILE.wav            what the server hears in a recording\n"
        "  chat                                an interactive conversation\n"
        "  render [--html | --ansi | --plain] one message text from stdin, as it is shown\n"
        "  prefs [set KEY VALUE]               server-side preferences\n"
        "  health [--json]                     the health summary from the server\n"
        "  health import FILE                  link and sync from a phone's export.xml\n"
        "  health disconnect [--forget]        unlink (--forget deletes it on the server too)\n"
        "  vault list [--json] | vault generate  the vault (no secrets); a new password\n"
        "  vault reveal ID | vault copy ID     one secret, after the system account's password\n"
        "  vault add KIND --title T [--field KEY=VALUE]... [--primary] | vault rm ID\n"
        "                                      add (a VALUE of - is read from stdin); delete\n"
        "  logout [--force]                    sign out\n"
        "  delete-account                      delete the account\n"
        "  push status [--json] | push test    check notifications; send a test one\n"
        "  call [--input FILE.wav] [--output FILE.wav] [--seconds S] [--json]\n"
        "                                      a live voice call with the agent\n"
        "  call status | journal [--json] | memory  availability; the call journal; fold memory\n"
        "  call prefs [--voice V] [--language L] [--provider P] | call threshold [DB]\n"
        "                                      voice preferences; the interruption threshold\n"
        "  debug crash SIGNAL | debug hang SECONDS | debug report\n"
        "                                      for developers: crash, hang, send the reports\n"
        "\n"
        "Exit status: 0 done, 1 refused by the server, 2 usage, 3 not signed in,\n"
        "4 server unreachable and nothing saved to show.\n"
        "Environment: HALVENMARK_SERVER (server address), HALVENMARK_HOME (data folder)."_s,
        u"Команды:\n"
        "  login --user NAME | --token TOKEN   вход (пароль из стандартного ввода)\n"
        "  whoami [--json]                     кто вошёл\n"
        "  get PATH                            страница сервера через кэш\n"
        "  watch PATH [--every SECONDS]        страница на экране, обновляется при изменении\n"
        "  lang [set he|en|ru]                 язык интерфейса\n"
        "  chat log [--project N] [--json]     разговор с агентом\n"
        "  chat follow [--project N]           работа агента вживую\n"
        "  chat send TEXT [--file PATH]... [--reply-to SEQ] [--wait SECONDS]\n"
        "                                      отправить сообщение (сначала сохраняется здесь)\n"
        "  chat outbox [--json] | chat drain   ждущие отправки; отправить их\n"
        "  chat retry ID | chat stop N         повторить; остановить задачу\n"
        "  chat play SEQ [--output FILE] [--rate R]  голос сообщения, или в файл WAV\n"
        "  chat send --voice FILE.wav          запись, отправленная голосовым сообщением\n"
        "  chat record [--seconds S]           запись с микрофона и отправка (Enter или Ctrl-C — стоп)\n"
        "  chat transcribe FILE.wav            что сервер услышал в записи\n"
        "  chat                                интерактивный разговор\n"
        "  render [--html | --ansi | --plain] текст сообщения из ввода, как он показывается\n"
        "  prefs [set KEY VALUE]               настройки на сервере\n"
        "  health [--json]                     сводка о здоровье с сервера\n"
        "  health import FILE                  подключить и синхронизировать export.xml телефона\n"
        "  health disconnect [--forget]        отключить (--forget удаляет и на сервере)\n"
        "  vault list [--json] | vault generate  хранилище (без секретов); новый пароль\n"
        "  vault reveal ID | vault copy ID     один секрет, после пароля учётной записи\n"
        "  vault add KIND --title T [--field KEY=VALUE]... [--primary] | vault rm ID\n"
        "                                      добавить (VALUE - читается из ввода); удалить\n"
        "  logout [--force]                    выйти\n"
        "  delete-account                      удалить аккаунт\n"
        "  push status [--json] | push test    проверка уведомлений; тестовое уведомление\n"
        "  call [--input FILE.wav] [--output FILE.wav] [--seconds S] [--json]\n"
        "                                      живой голосовой звонок агенту\n"
        "  call status | journal [--json] | memory  доступность; журнал звонков; свернуть память\n"
        "  call prefs [--voice V] [--language L] [--provider P] | call threshold [DB]\n"
        "                                      настройки голоса; порог перебивания\n"
        "  debug crash SIGNAL | debug hang SECONDS | debug report\n"
        "                                      для разработчиков: сбой, зависание, отправка отчётов\n"
        "\n"
        "Код выхода: 0 готово, 1 сервер отказал, 2 ошибка вызова, 3 вход не выполнен,\n"
        "4 сервер недоступен и сохранённой копии нет.\n"
        "Окружение: HALVENMARK_SERVER (адрес сервера), HALVENMARK_HOME (папка данных)."_s);
}

// A command's status once a sign-out it caused (a 401 included) has removed the stored session:
// the process ends right after.
QCoro::Task<int> settled(QCoro::Task<int> command, Session *session)
{
    const int code = co_await command;
    co_await session->settle();
    co_return code;
}

} // namespace

int main(int argc, char **argv)
{
    // QtMultimedia decodes voice with FFmpeg (Ogg/Opus, M4A): chosen before its first use.
    if (qEnvironmentVariableIsEmpty("QT_MEDIA_BACKEND"))
        qputenv("QT_MEDIA_BACKEND", "ffmpeg");
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(u"Halvenmark"_s);
    QCoreApplication::setApplicationName(u"halvenmark"_s);
    QCoreApplication::setApplicationVersion(Api::userAgent());

    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption json(u"json"_s, u"Machine-readable output."_s);
    const QCommandLineOption user(u"user"_s, u"User name to sign in with."_s,
                                  u"NAME"_s);
    const QCommandLineOption token(u"token"_s,
                                   u"One-time sign-in token."_s, u"TOKEN"_s);
    const QCommandLineOption lang(u"lang"_s, u"Language for this run: he, en or ru."_s, u"CODE"_s);
    const QCommandLineOption every(u"every"_s, u"Seconds between reloads (watch)."_s, u"SECONDS"_s);
    const QCommandLineOption project(u"project"_s, u"A project's conversation."_s, u"N"_s);
    const QCommandLineOption file(u"file"_s, u"A file to send (repeatable)."_s, u"PATH"_s);
    const QCommandLineOption replyTo(u"reply-to"_s, u"The message (seq) a turn answers."_s, u"SEQ"_s);
    const QCommandLineOption html(u"html"_s, u"render: HTML for the desktop app."_s);
    const QCommandLineOption ansi(u"ansi"_s, u"render: styled for a terminal."_s);
    const QCommandLineOption plain(u"plain"_s, u"render: the shown text with its direction marks."_s);
    const QCommandLineOption wait(u"wait"_s, u"Seconds to wait for the agent's reply."_s, u"SECONDS"_s);
    const QCommandLineOption output(u"output"_s, u"chat play: write the voice to this WAV file."_s, u"FILE"_s);
    const QCommandLineOption rate(u"rate"_s, u"chat play: speed 1, 1.5 or 2."_s, u"R"_s);
    parser.addOptions({json, user, token, lang, every, project, file, replyTo, wait, html, ansi, plain,
                       output, rate});
    const QCommandLineOption title(u"title"_s, u"vault add: the item's title."_s, u"T"_s);
    const QCommandLineOption field(u"field"_s, u"vault add: one field (repeatable)."_s, u"KEY=VALUE"_s);
    const QCommandLineOption primary(u"primary"_s, u"vault add: the default of its kind."_s);
    const QCommandLineOption forget(u"forget"_s, u"health disconnect: delete it on the server too."_s);
    parser.addOptions({title, field, primary, forget});
    const QCommandLineOption force(u"force"_s, u"logout: even with turns not yet sent."_s);
    parser.addOption(force);
    const QCommandLineOption input(u"input"_s, u"call, chat record: this WAV file instead of the microphone."_s, u"FILE"_s);
    const QCommandLineOption seconds(u"seconds"_s, u"call: hang up after S seconds; chat record: stop after S."_s, u"S"_s);
    const QCommandLineOption voice(u"voice"_s, u"call prefs: the agent's voice; chat send: a WAV recording sent as a voice note."_s, u"V|FILE"_s);
    const QCommandLineOption language(u"language"_s, u"call prefs: the call's language."_s, u"L"_s);
    const QCommandLineOption provider(u"provider"_s, u"call prefs: openai or gemini."_s, u"P"_s);
    parser.addOptions({input, seconds, voice, language, provider});
    parser.addPositionalArgument(u"command"_s, u"What to do."_s);

    // "call threshold -30": the decibels are a value, not a cluster of short options.
    QStringList arguments = QCoreApplication::arguments();
    static const QRegularExpression negative(u"^-[0-9]+(\\.[0-9]+)?$"_s);
    if (const qsizetype at = arguments.indexOf(negative); at > 0 && arguments.at(at - 1) == u"threshold")
        arguments.insert(at, u"--"_s);
    if (!parser.parse(arguments)) {
        const QStringList unknown = parser.unknownOptionNames();
        Console::err(unknown.isEmpty()
                         ? parser.errorText()
                         : L::t(u"אפשרות לא מוכרת: %1"_s, u"Unknown option: %1"_s,
                                u"Неизвестный параметр: %1"_s)
                               .arg(unknown.join(u", "_s)));
        return Usage;
    }
    if (parser.isSet(lang) && !L::pin(parser.value(lang))) {
        Console::err(L::t(u"שפה לא מוכרת: %1 (he, en, ru)"_s, u"Unknown language: %1 (he, en, ru)"_s,
                          u"Неизвестный язык: %1 (he, en, ru)"_s)
                         .arg(parser.value(lang)));
        return Usage;
    }
    parser.setApplicationDescription(summary());
    if (parser.isSet(u"help"_s)) {
        Console::out(parser.helpText());
        return Done;
    }
    if (parser.isSet(u"version"_s)) {
        Console::out(Api::userAgent());
        return Done;
    }

    Invocation in;
    QStringList words = parser.positionalArguments();
    if (words.isEmpty()) {
        Console::err(summary());
        return Usage;
    }
    in.command = words.takeFirst();
    in.args = words;
    in.force = parser.isSet(force);
    in.json = parser.isSet(json);
    in.user = parser.value(user);
    in.token = parser.value(token);
    if (parser.isSet(project)) {
        bool number = false;
        const int id = parser.value(project).toInt(&number);
        if (!number || id < 1) {
            Console::err(L::t(u"‎--project‎ צריך מספר פרויקט."_s, u"--project needs a project number."_s,
                              u"Для --project нужен номер проекта."_s));
            return Usage;
        }
        in.project = id;
    }
    in.files = parser.values(file);
    in.title = parser.value(title);
    in.fields = parser.values(field);
    in.primary = parser.isSet(primary);
    in.forget = parser.isSet(forget);
    if (parser.isSet(replyTo)) {
        bool number = false;
        const qint64 seq = parser.value(replyTo).toLongLong(&number);
        if (!number || seq < 1) {
            Console::err(L::t(u"‎--reply-to‎ צריך מספר הודעה."_s, u"--reply-to needs a message number."_s,
                              u"Для --reply-to нужен номер сообщения."_s));
            return Usage;
        }
        in.replyTo = seq;
    }
    if (parser.isSet(wait)) {
        bool number = false;
        in.wait = parser.value(wait).toDouble(&number);
        if (!number || in.wait <= 0) {
            Console::err(L::t(u"‎--wait‎ צריך מספר שניות חיובי."_s, u"--wait needs a positive number of seconds."_s,
                              u"Для --wait нужно положительное число секунд."_s));
            return Usage;
        }
    }
    in.output = parser.value(output);
    in.input = parser.value(input);
    in.voice = parser.value(voice);
    in.language = parser.value(language);
    in.provider = parser.value(provider);
    if (parser.isSet(seconds)) {
        bool number = false;
        in.seconds = parser.value(seconds).toDouble(&number);
        if (!number || !(in.seconds > 0)) {
            Console::err(L::t(u"‎--seconds‎ צריך מספר שניות חיובי."_s, u"--seconds needs a positive number of seconds."_s,
                              u"Для --seconds нужно положительное число секунд."_s));
            return Usage;
        }
    }
    if (parser.isSet(rate)) {
        bool number = false;
        in.rate = parser.value(rate).toDouble(&number);
        if (!number || in.rate <= 0) {
            Console::err(L::t(u"‎--rate‎ צריך 1, 1.5 או 2."_s, u"--rate needs 1, 1.5 or 2."_s,
                              u"Для --rate нужно 1, 1.5 или 2."_s));
            return Usage;
        }
    }
    if (parser.isSet(every)) {
        bool number = false;
        in.every = parser.value(every).toDouble(&number);
        if (!number || in.every <= 0) {
            Console::err(L::t(u"‎--every‎ צריך מספר שניות חיובי."_s, u"--every needs a positive number of seconds."_s,
                              u"Для --every нужно положительное число секунд."_s));
            return Usage;
        }
    }

    if (in.command == u"render") {
        const int modes = int(parser.isSet(html)) + int(parser.isSet(ansi)) + int(parser.isSet(plain));
        if (!in.args.isEmpty() || modes > 1) {
            Console::err(L::t(u"שימוש: render [--html | --ansi | --plain]"_s, u"Usage: render [--html | --ansi | --plain]"_s,
                              u"Использование: render [--html | --ansi | --plain]"_s));
            return Usage;
        }
        const QString mode = parser.isSet(html) ? u"html"_s : parser.isSet(plain) ? u"plain"_s : u"ansi"_s;
        return RenderCommand::run(mode);
    }
    const auto found = commands().find(in.command);
    if (found == commands().end()) {
        Console::err(L::t(u"פקודה לא מוכרת: %1"_s, u"Unknown command: %1"_s,
                          u"Неизвестная команда: %1"_s)
                         .arg(in.command));
        Console::err(summary());
        return Usage;
    }
    if (const QString refused = Api::baseError(); !refused.isEmpty()) {
        Console::err(refused);
        return Usage;
    }

    CliVitals::arm(in);
    Session session(SecretStore::platform(u"Halvenmark"_s));
    session.onForget([] { ChatStore::resetAll(); });
    ChatBackgroundTransfer transfers;
    // Started from inside the event loop: a command that finishes without waiting on
    // anything must still be able to end the loop.
    QTimer::singleShot(0, &app, [&] {
        QCoro::connect(settled(found->second(in), &session), &app, [](int code) {
            Crash::settled();
            QCoreApplication::exit(code);
        });
    });
    return app.exec();
}
