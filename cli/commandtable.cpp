#include "commandtable.h"

#include "text/l.h"

#include <QSet>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace CommandTable {

QString Said::text() const
{
    return L::t(QString::fromUtf16(he), QString::fromUtf16(en), QString::fromUtf16(ru));
}

const QList<Option> &options()
{
    static const QList<Option> table = {
        {u"json"_s,
         {},
         {u"פלט למכונות (JSON).", u"Machine-readable output (JSON).",
          u"Вывод для программ (JSON)."}},
        {u"user"_s,
         u"NAME"_s,
         {u"שם המשתמש.", u"The user name to sign in with.", u"Имя пользователя для входа."}},
        {u"token"_s,
         u"TOKEN"_s,
         {u"אסימון כניסה חד־פעמי.", u"A one-time sign-in token.", u"Одноразовый токен входа."}},
        {u"lang"_s,
         u"CODE"_s,
         {u"שפה להרצה זו: he, en או ru.", u"The language for this run: he, en or ru.",
          u"Язык для этого запуска: he, en или ru."}},
        {u"every"_s,
         u"SECONDS"_s,
         {u"שניות בין טעינות.", u"Seconds between reloads.", u"Секунд между обновлениями."}},
        {u"project"_s,
         u"N"_s,
         {u"השיחה של פרויקט N.", u"Project N's conversation.", u"Разговор проекта N."}},
        {u"file"_s,
         u"PATH"_s,
         {u"קובץ לשליחה (אפשר כמה).", u"A file to send (repeatable).",
          u"Файл для отправки (можно несколько)."}},
        {u"voice"_s,
         u"VOICE"_s,
         {u"הודעה קולית (chat send, קובץ WAV) או הקול (call prefs).",
          u"A voice note (chat send, a WAV file) or the voice (call prefs).",
          u"Голосовое сообщение (chat send, файл WAV) или голос (call prefs)."}},
        {u"reply-to"_s,
         u"SEQ"_s,
         {u"ההודעה (seq) שעליה עונים.", u"The message (seq) this turn answers.",
          u"Сообщение (seq), на которое это ответ."}},
        {u"wait"_s,
         u"SECONDS"_s,
         {u"המתנה לתשובת הסוכן, עד כך וכך שניות.",
          u"Wait up to this many seconds for the agent's reply.",
          u"Ждать ответа агента до стольких секунд."}},
        {u"edit"_s,
         {},
         {u"כתיבת ההודעה ב־$EDITOR.", u"Write the message in $EDITOR.",
          u"Написать сообщение в $EDITOR."}},
        {u"limit"_s,
         u"N"_s,
         {u"רק N ההודעות האחרונות.", u"Only the last N messages.",
          u"Только последние N сообщений."}},
        {u"since"_s,
         u"SEQ"_s,
         {u"רק הודעות אחרי SEQ.", u"Only messages after SEQ.", u"Только сообщения после SEQ."}},
        {u"html"_s,
         {},
         {u"HTML כמו באפליקציה.", u"HTML, as the desktop app shows it.",
          u"HTML, как в приложении."}},
        {u"ansi"_s,
         {},
         {u"מעוצב למסוף.", u"Styled for a terminal.", u"С оформлением для терминала."}},
        {u"plain"_s,
         {},
         {u"הטקסט המוצג עם סימני הכיוון.", u"The shown text with its direction marks.",
          u"Показанный текст со знаками направления."}},
        {u"output"_s,
         u"FILE"_s,
         {u"הקובץ שאליו נכתב.", u"The file to write to.", u"Файл для записи."}},
        {u"input"_s,
         u"FILE"_s,
         {u"קובץ WAV במקום המיקרופון.", u"A WAV file instead of the microphone.",
          u"WAV-файл вместо микрофона."}},
        {u"seconds"_s, u"S"_s, {u"כמה שניות.", u"How many seconds.", u"Сколько секунд."}},
        {u"rate"_s,
         u"R"_s,
         {u"מהירות 1, 1.5 או 2.", u"Speed 1, 1.5 or 2.", u"Скорость 1, 1.5 или 2."}},
        {u"language"_s, u"L"_s, {u"שפת השיחה.", u"The call's language.", u"Язык звонка."}},
        {u"provider"_s, u"P"_s, {u"ספק הקול.", u"The voice provider.", u"Поставщик голоса."}},
        {u"title"_s, u"T"_s, {u"כותרת הפריט.", u"The item's title.", u"Название записи."}},
        {u"field"_s,
         u"KEY=VALUE"_s,
         {u"שדה אחד (אפשר כמה; VALUE ‎-‎ נקרא מהקלט).",
          u"One field (repeatable; a VALUE of - is read from stdin).",
          u"Одно поле (можно несколько; VALUE - читается из ввода)."}},
        {u"primary"_s,
         {},
         {u"ברירת המחדל מסוגו.", u"The default of its kind.", u"Основной в своём виде."}},
        {u"forget"_s,
         {},
         {u"מחיקה גם מהשרת.", u"Delete it on the server too.", u"Удалить и на сервере."}},
        {u"yes"_s, {}, {u"בלי לשאול.", u"Go ahead without asking.", u"Не спрашивать."}},
        {u"force"_s, {}, {u"כמו ‎--yes‎.", u"The same as --yes.", u"То же, что --yes."}},
        {u"bidi"_s,
         {},
         {u"סימני כיוון גם בפלט לצינור.", u"Direction marks even into a pipe.",
          u"Знаки направления и при выводе в канал."}},
        {u"help"_s, {}, {u"עזרה לפקודה.", u"Help for the command.", u"Справка по команде."}},
        {u"version"_s, {}, {u"הגרסה.", u"The version.", u"Версия."}},
    };
    return table;
}

const QStringList &globalOptions()
{
    static const QStringList names = {u"lang"_s, u"help"_s, u"version"_s, u"bidi"_s};
    return names;
}

const QList<Form> &forms()
{
    static const QList<Form> table = {
        {u"login"_s,
         {},
         {u"user"_s, u"token"_s},
         u"login --user NAME | --token TOKEN"_s,
         {u"כניסה (הסיסמה מהקלט, או נשאלת בלי הד).",
          u"Sign in (the password from stdin, or asked without echo).",
          u"Вход (пароль из ввода или запрашивается без эха)."},
         {u"halvenmark-cli login --user dana"_s,
          u"printf '%s\\n' \"$PASSWORD\" | halvenmark-cli login --user dana"_s}},
        {u"whoami"_s,
         {},
         {u"json"_s},
         u"whoami [--json]"_s,
         {u"מי מחובר.", u"Who is signed in.", u"Кто вошёл."},
         {u"halvenmark-cli whoami --json"_s}},
        {u"logout"_s,
         {},
         {u"yes"_s, u"force"_s},
         u"logout [--yes]"_s,
         {u"יציאה; עם הודעות שלא נשלחו שואל קודם (או ‎--yes‎).",
          u"Sign out; with turns not yet sent it asks first (or --yes).",
          u"Выход; если есть неотправленные сообщения, сначала спросит (или --yes)."},
         {u"halvenmark-cli logout"_s, u"halvenmark-cli logout --yes"_s}},
        {u"delete-account"_s,
         {},
         {u"yes"_s},
         u"delete-account [--yes]"_s,
         {u"מחיקת החשבון; שואל קודם (או ‎--yes‎).",
          u"Delete the account; asks first (or --yes).",
          u"Удалить аккаунт; сначала спросит (или --yes)."},
         {u"halvenmark-cli delete-account --yes"_s}},
        {u"prefs"_s,
         {},
         {u"json"_s},
         u"prefs [--json]"_s,
         {u"העדפות בשרת.", u"Server-side preferences.", u"Настройки на сервере."},
         {u"halvenmark-cli prefs"_s}},
        {u"prefs"_s,
         u"set"_s,
         {},
         u"prefs set KEY VALUE"_s,
         {u"שינוי העדפה.", u"Change one preference.", u"Изменить настройку."},
         {u"halvenmark-cli prefs set theme dark"_s}},
        {u"lang"_s,
         {},
         {},
         u"lang"_s,
         {u"שפת הממשק.", u"The interface language.", u"Язык интерфейса."},
         {u"halvenmark-cli lang"_s}},
        {u"lang"_s,
         u"set"_s,
         {},
         u"lang set he|en|ru"_s,
         {u"בחירת שפת הממשק.", u"Choose the interface language.", u"Выбрать язык интерфейса."},
         {u"halvenmark-cli lang set he"_s}},
        {u"get"_s,
         {},
         {u"output"_s},
         u"get PATH [--output FILE]"_s,
         {u"דף מהשרת דרך המטמון; קובץ בינארי נכתב "
          u"ל־‎--output‎.",
          u"A server page through the page cache; a binary one goes to --output.",
          u"Страница сервера через кэш; двоичная пишется в --output."},
         {u"halvenmark-cli get webapi/projects"_s,
          u"halvenmark-cli get webapi/files/blob.bin --output blob.bin"_s},
         true},
        {u"watch"_s,
         {},
         {u"every"_s},
         u"watch PATH [--every SECONDS]"_s,
         {u"דף על המסך, מתעדכן כשהוא משתנה.", u"A page kept on screen, redrawn when it changes.",
          u"Страница на экране, обновляется при изменении."},
         {u"halvenmark-cli watch webapi/tasks --every 5"_s},
         true},
        {u"render"_s,
         {},
         {u"html"_s, u"ansi"_s, u"plain"_s},
         u"render [--html | --ansi | --plain]"_s,
         {u"טקסט של הודעה מהקלט, כפי שהוא מוצג.", u"One message text from stdin, as it is shown.",
          u"Текст сообщения из ввода, как он показывается."},
         {u"halvenmark-cli render --plain < reply.md"_s}},
        {u"chat"_s,
         {},
         {u"project"_s},
         u"chat [--project N]"_s,
         {u"שיחה אינטראקטיבית.", u"An interactive conversation.", u"Интерактивный разговор."},
         {u"halvenmark-cli chat"_s}},
        {u"chat"_s,
         u"log"_s,
         {u"project"_s, u"json"_s, u"limit"_s, u"since"_s},
         u"chat log [--project N] [--limit N] [--since SEQ] [--json]"_s,
         {u"השיחה עם הסוכן, עם מספרי ההודעות והמשימות.",
          u"The conversation, with message and task numbers.",
          u"Разговор с номерами сообщений и задач."},
         {u"halvenmark-cli chat log --limit 20"_s,
          u"halvenmark-cli chat log --since 140 --json"_s}},
        {u"chat"_s,
         u"follow"_s,
         {u"project"_s, u"json"_s},
         u"chat follow [--project N] [--json]"_s,
         {u"עבודת הסוכן בזמן אמת (‎--json‎: אובייקט בכל שורה).",
          u"The agent's work, live (--json: one object a line).",
          u"Работа агента вживую (--json: объект на строку)."},
         {u"halvenmark-cli chat follow --json | jq .text"_s}},
        {u"chat"_s,
         u"send"_s,
         {u"project"_s, u"file"_s, u"voice"_s, u"reply-to"_s, u"wait"_s, u"edit"_s, u"json"_s},
         u"chat send [TEXT | -] [--edit] [--file PATH]... [--voice FILE.wav] [--project N] "
         u"[--reply-to SEQ] "
         "[--wait SECONDS] [--json]"_s,
         {u"שליחת הודעה (נשמרת קודם במכשיר); בלי טקסט, או ‎-‎: מהקלט. טקסט שמתחיל ב־‎-‎ בא "
          u"אחרי ‎--‎.",
          u"Send a turn (kept on this device first); without TEXT, or with -: from stdin. Text "
          u"that starts "
          u"with - goes after --.",
          u"Отправить сообщение (сначала сохраняется здесь); без TEXT или с -: из ввода. Текст, "
          u"начинающийся с -, пишется после --."},
         {u"halvenmark-cli chat send \"Book a table for two\" --wait 60"_s,
          u"git diff | halvenmark-cli chat send --file notes.txt \"Review this\""_s,
          u"git log -5 | halvenmark-cli chat send"_s,
          u"halvenmark-cli chat send -- \"-5 degrees, coat or not?\""_s,
          u"halvenmark-cli chat send --edit"_s}},
        {u"chat"_s,
         u"outbox"_s,
         {u"project"_s, u"json"_s},
         u"chat outbox [--json] | chat outbox discard ID"_s,
         {u"הודעות שממתינות לשליחה; ויתור על אחת (מזהה או תחילתו).",
          u"Turns waiting to go out; discard one (its id or any unique start of it).",
          u"Ждущие отправки; отказаться от одного (id или его уникальное начало)."},
         {u"halvenmark-cli chat outbox --json"_s, u"halvenmark-cli chat outbox discard 3f2a"_s}},
        {u"chat"_s,
         u"drain"_s,
         {u"project"_s},
         u"chat drain [--project N]"_s,
         {u"שליחת מה שממתין (יציאה 1 כשנשארו הודעות לניסיון חוזר).",
          u"Send what waits (exit 1 when turns wait for Retry).",
          u"Отправить ждущие (выход 1, если остались ждущие повтора)."},
         {u"halvenmark-cli chat drain"_s}},
        {u"chat"_s,
         u"retry"_s,
         {u"project"_s},
         u"chat retry ID"_s,
         {u"ניסיון חוזר להודעה שנדחתה.", u"Try a refused turn again.",
          u"Повторить отклонённое сообщение."},
         {u"halvenmark-cli chat retry 3f2a"_s}},
        {u"chat"_s,
         u"stop"_s,
         {u"project"_s},
         u"chat stop N"_s,
         {u"עצירת משימה.", u"Stop a task.", u"Остановить задачу."},
         {u"halvenmark-cli chat stop 12"_s}},
        {u"chat"_s,
         u"play"_s,
         {u"project"_s, u"output"_s, u"rate"_s},
         u"chat play SEQ [--output FILE] [--rate 1|1.5|2]"_s,
         {u"הקול של הודעה, או לקובץ WAV.", u"A message's voice, or into a WAV file.",
          u"Голос сообщения или в файл WAV."},
         {u"halvenmark-cli chat play 42 --rate 1.5"_s}},
        {u"chat"_s,
         u"record"_s,
         {u"project"_s, u"seconds"_s, u"input"_s},
         u"chat record [--seconds S] [--input FILE.wav]"_s,
         {u"הקלטת הודעה קולית ושליחתה.", u"Record a voice note and send it.",
          u"Записать голосовое сообщение и отправить."},
         {u"halvenmark-cli chat record --seconds 10"_s}},
        {u"chat"_s,
         u"transcribe"_s,
         {u"project"_s},
         u"chat transcribe FILE.wav"_s,
         {u"הטקסט של הקלטה.", u"The text of a recording.", u"Текст записи."},
         {u"halvenmark-cli chat transcribe note.wav"_s}},
        {u"call"_s,
         {},
         {u"project"_s, u"input"_s, u"output"_s, u"seconds"_s, u"json"_s},
         u"call [--project N] [--input FILE.wav] [--output FILE.wav] [--seconds S] [--json]"_s,
         {u"שיחה קולית עם הסוכן.", u"A live voice call with the agent.",
          u"Голосовой звонок агенту."},
         {u"halvenmark-cli call"_s,
          u"halvenmark-cli call --input question.wav --output answer.wav"_s}},
        {u"call"_s,
         u"status"_s,
         {u"json"_s},
         u"call status [--json]"_s,
         {u"האם שיחות קוליות זמינות.", u"Whether voice calls are available.",
          u"Доступны ли звонки."},
         {u"halvenmark-cli call status --json"_s}},
        {u"call"_s,
         u"journal"_s,
         {u"json"_s},
         u"call journal [--json]"_s,
         {u"מה נאמר בשיחות.", u"What was said in calls.", u"Что было сказано в звонках."},
         {u"halvenmark-cli call journal"_s}},
        {u"call"_s,
         u"prefs"_s,
         {u"voice"_s, u"language"_s, u"provider"_s},
         u"call prefs [--voice V] [--language L] [--provider P]"_s,
         {u"העדפות השיחה.", u"Call preferences.", u"Настройки звонка."},
         {u"halvenmark-cli call prefs --voice alloy"_s}},
        {u"call"_s,
         u"memory"_s,
         {},
         u"call memory"_s,
         {u"מה הסוכן זוכר מהשיחות.", u"What the agent remembers from calls.",
          u"Что агент помнит из звонков."},
         {u"halvenmark-cli call memory"_s}},
        {u"call"_s,
         u"threshold"_s,
         {},
         u"call threshold [DB]"_s,
         {u"סף הקטיעה בדציבלים.", u"The barge-in threshold in decibels.",
          u"Порог перебивания в децибелах."},
         {u"halvenmark-cli call threshold -- -45"_s}},
        {u"health"_s,
         {},
         {u"json"_s},
         u"health [--json]"_s,
         {u"סיכום הבריאות מהשרת.", u"The health summary from the server.",
          u"Сводка о здоровье с сервера."},
         {u"halvenmark-cli health --json"_s}},
        {u"health"_s,
         u"import"_s,
         {u"json"_s},
         u"health import FILE"_s,
         {u"קישור וסנכרון מייצוא export.xml של הטלפון.",
          u"Link and sync from a phone's export.xml.",
          u"Подключить и синхронизировать export.xml телефона."},
         {u"halvenmark-cli health import export.xml"_s}},
        {u"health"_s,
         u"disconnect"_s,
         {u"forget"_s},
         u"health disconnect [--forget]"_s,
         {u"ניתוק (‎--forget‎ מוחק גם מהשרת).",
          u"Unlink (--forget deletes it on the server too).",
          u"Отключить (--forget удаляет и на сервере)."},
         {u"halvenmark-cli health disconnect --forget"_s}},
        {u"vault"_s,
         u"list"_s,
         {u"json"_s},
         u"vault list [--json]"_s,
         {u"הכספת, בלי הסודות.", u"The vault, without its secrets.", u"Хранилище без секретов."},
         {u"halvenmark-cli vault list"_s}},
        {u"vault"_s,
         u"generate"_s,
         {},
         u"vault generate"_s,
         {u"סיסמה חדשה.", u"A new password.", u"Новый пароль."},
         {u"halvenmark-cli vault generate"_s}},
        {u"vault"_s,
         u"reveal"_s,
         {},
         u"vault reveal ID"_s,
         {u"סוד אחד, אחרי סיסמת חשבון המערכת.", u"One secret, after the system account's password.",
          u"Один секрет после пароля учётной записи."},
         {u"halvenmark-cli vault reveal 7"_s}},
        {u"vault"_s,
         u"copy"_s,
         {},
         u"vault copy ID"_s,
         {u"סוד אחד ללוח, לדקה.", u"One secret onto the clipboard, for a minute.",
          u"Один секрет в буфер на минуту."},
         {u"halvenmark-cli vault copy 7"_s}},
        {u"vault"_s,
         u"add"_s,
         {u"title"_s, u"field"_s, u"primary"_s},
         u"vault add KIND --title T [--field KEY=VALUE]... [--primary]"_s,
         {u"הוספת פריט.", u"Add an item.", u"Добавить запись."},
         {u"halvenmark-cli vault add login --title Bank --field user=dana --field password=-"_s}},
        {u"vault"_s,
         u"rm"_s,
         {},
         u"vault rm ID"_s,
         {u"מחיקת פריט.", u"Delete an item.", u"Удалить запись."},
         {u"halvenmark-cli vault rm 7"_s}},
        {u"push"_s,
         u"status"_s,
         {u"json"_s},
         u"push status [--json]"_s,
         {u"בדיקת ההתראות.", u"Check notifications.", u"Проверка уведомлений."},
         {u"halvenmark-cli push status"_s}},
        {u"push"_s,
         u"test"_s,
         {},
         u"push test"_s,
         {u"התראת בדיקה.", u"Send a test notification.", u"Тестовое уведомление."},
         {u"halvenmark-cli push test"_s}},
        {u"debug"_s,
         u"crash"_s,
         {},
         u"debug crash SIGNAL"_s,
         {u"למפתחים: קריסה.", u"For developers: crash.", u"Для разработчиков: сбой."},
         {u"halvenmark-cli debug crash SEGV"_s}},
        {u"debug"_s,
         u"hang"_s,
         {},
         u"debug hang SECONDS"_s,
         {u"למפתחים: תקיעה.", u"For developers: hang.", u"Для разработчиков: зависание."},
         {u"halvenmark-cli debug hang 5"_s}},
        {u"debug"_s,
         u"report"_s,
         {},
         u"debug report"_s,
         {u"למפתחים: שליחת הדוחות.", u"For developers: send the reports.",
          u"Для разработчиков: отправка отчётов."},
         {u"halvenmark-cli debug report"_s}},
        {u"help"_s,
         {},
         {},
         u"help [COMMAND [SUBCOMMAND]]"_s,
         {u"עזרה לפקודה.", u"Help for a command.", u"Справка по команде."},
         {u"halvenmark-cli help chat send"_s},
         true},
    };
    return table;
}

const Option *option(const QString &name)
{
    const auto &all = options();
    const auto it =
        std::find_if(all.begin(), all.end(), [&](const Option &o) { return o.name == name; });
    return it == all.end() ? nullptr : &*it;
}

namespace {

const Form *find(const QString &command, const QString &sub)
{
    const auto &all = forms();
    const auto it = std::find_if(all.begin(), all.end(), [&](const Form &f) {
        return f.command == command && f.sub == sub;
    });
    return it == all.end() ? nullptr : &*it;
}

} // namespace

const Form *resolve(const QString &command, const QStringList &words)
{
    if (!words.isEmpty() && !words.first().isEmpty()) {
        if (const Form *form = find(command, words.first()))
            return form;
    }
    const Form *bare = find(command, {});
    if (bare && !words.isEmpty() && !bare->takesWords && !subcommands(command).isEmpty())
        return nullptr;
    return bare;
}

bool isCommand(const QString &command)
{
    return commandNames().contains(command);
}

QStringList commandNames()
{
    QStringList names;
    for (const Form &f : forms()) {
        if (!names.contains(f.command))
            names.append(f.command);
    }
    return names;
}

QStringList subcommands(const QString &command)
{
    QStringList subs;
    for (const Form &f : forms()) {
        if (f.command == command && !f.sub.isEmpty())
            subs.append(f.sub);
    }
    return subs;
}

QStringList refused(const Form &form, const QStringList &given)
{
    QStringList out;
    for (const QString &name : given) {
        if (!form.options.contains(name) && !globalOptions().contains(name) && !out.contains(name))
            out.append(name);
    }
    return out;
}

int distance(const QString &a, const QString &b)
{
    // Optimal string alignment: a swap of two neighbours counts as one edit.
    const qsizetype n = a.size(), m = b.size();
    QList<QList<int>> d(n + 1, QList<int>(m + 1, 0));
    for (qsizetype i = 0; i <= n; ++i)
        d[i][0] = int(i);
    for (qsizetype j = 0; j <= m; ++j)
        d[0][j] = int(j);
    for (qsizetype i = 1; i <= n; ++i) {
        for (qsizetype j = 1; j <= m; ++j) {
            const int cost = a[i - 1].toLower() == b[j - 1].toLower() ? 0 : 1;
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[n][m];
}

std::optional<QString> closest(const QString &word, const QStringList &candidates)
{
    if (word.isEmpty())
        return std::nullopt;
    std::optional<QString> best;
    int bestScore = std::numeric_limits<int>::max();
    for (const QString &c : candidates) {
        // A start of three letters or more ("del" for delete-account) is as good as one edit.
        const int score =
            word.size() >= 3 && c.startsWith(word, Qt::CaseInsensitive) ? 1 : distance(word, c);
        if (score < bestScore) {
            bestScore = score;
            best = c;
        }
    }
    const int allowed = std::max<int>(1, int((word.size() + 2) / 3));
    if (!best || bestScore > allowed)
        return std::nullopt;
    return best;
}

namespace {

QString heading(const char16_t *he, const char16_t *en, const char16_t *ru)
{
    return L::t(QString::fromUtf16(he), QString::fromUtf16(en), QString::fromUtf16(ru));
}

} // namespace

QString help(const Form &form)
{
    QStringList lines;
    lines << heading(u"שימוש: ", u"Usage: ", u"Использование: ") + u"halvenmark-cli "_s +
                 form.usage;
    lines << u"  "_s + form.about.text();
    QStringList taken = form.options;
    if (!taken.isEmpty()) {
        lines << QString() << heading(u"אפשרויות:", u"Options:", u"Параметры:");
        for (const QString &name : taken) {
            const Option *o = option(name);
            const QString left =
                u"--"_s + name + (o->valueName.isEmpty() ? QString() : u" "_s + o->valueName);
            lines << u"  "_s + left.leftJustified(20) + u" "_s + o->about.text();
        }
    }
    if (!form.examples.isEmpty()) {
        lines << QString() << heading(u"דוגמאות:", u"Examples:", u"Примеры:");
        for (const QString &e : form.examples)
            lines << u"  "_s + e;
    }
    return lines.join(u'\n');
}

QString help(const QString &command)
{
    QStringList parts;
    for (const Form &f : forms()) {
        if (f.command == command)
            parts << help(f);
    }
    return parts.join(u"\n\n"_s);
}

QString summary()
{
    QStringList lines;
    lines << heading(u"שימוש: halvenmark-cli [--lang he|en|ru] COMMAND [OPTIONS]",
                     u"Usage: halvenmark-cli [--lang he|en|ru] COMMAND [OPTIONS]",
                     u"Использование: halvenmark-cli [--lang he|en|ru] COMMAND [OPTIONS]")
          << QString() << heading(u"פקודות:", u"Commands:", u"Команды:");
    for (const Form &f : forms()) {
        const QString usage = f.usage.size() > 36
                                  ? f.usage.section(u' ', 0, f.sub.isEmpty() ? 0 : 1) + u" …"_s
                                  : f.usage;
        lines << u"  "_s + usage.leftJustified(36) + u" "_s + f.about.text();
    }
    lines
        << QString()
        << heading(u"עזרה לפקודה: halvenmark-cli help COMMAND, או COMMAND --help.",
                   u"Help for one command: halvenmark-cli help COMMAND, or COMMAND --help.",
                   u"Справка по команде: halvenmark-cli help COMMAND или COMMAND --help.")
        << heading(
               u"קוד יציאה: 0 הצלחה, 1 השרת סירב או הסוכן נכשל, 2 שימוש שגוי, 3 לא מחוברים,\n"
               u"4 אין חיבור לשרת ואין עותק שמור (הודעה נשמרה לשליחה מאוחרת), 5 תשובה לא שמישה.",
               u"Exit status: 0 done, 1 refused by the server or the agent's run failed, 2 usage,\n"
               u"3 not signed in, 4 server unreachable and nothing saved to show (a turn kept for\n"
               u"later), 5 an answer the client cannot use.",
               u"Код выхода: 0 готово, 1 сервер отказал или агент не справился, 2 ошибка вызова,\n"
               u"3 вход не выполнен, 4 сервер недоступен и копии нет (сообщение сохранено), 5 "
               u"непригодный ответ.")
        << heading(
               u"סביבה: HALVENMARK_SERVER (כתובת השרת), HALVENMARK_HOME (תיקיית הנתונים), EDITOR.",
               u"Environment: HALVENMARK_SERVER (server address), HALVENMARK_HOME (data folder), "
               u"EDITOR.",
               u"Окружение: HALVENMARK_SERVER (адрес сервера), HALVENMARK_HOME (папка данных), "
               u"EDITOR.");
    return lines.join(u'\n');
}

} // namespace CommandTable
