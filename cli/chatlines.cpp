#include "chatlines.h"

#include "terminaltext.h"

#include "chat/model/chatjson.h"
#include "chat/markup/ansiwriter.h"
#include "text/l.h"

#include <QDateTime>

using namespace Qt::StringLiterals;

namespace ChatLines {

namespace {

QString firstLine(const QString &text)
{
    const QString trimmed = text.trimmed();
    const qsizetype end = trimmed.indexOf(u'\n');
    return end < 0 ? trimmed : trimmed.left(end) + u" …"_s;
}

QString lastLine(const QString &text)
{
    return text.section(u'\n', -1, -1, QString::SectionSkipEmpty).trimmed();
}

} // namespace

QString status(const Status &s)
{
    QString out;
    switch (s.link) {
    case Link::Connecting:
        out = L::t(u"○ מתחבר…"_s, u"○ connecting…"_s, u"○ подключение…"_s);
        break;
    case Link::Connected:
        out = L::t(u"● מחובר"_s, u"● connected"_s, u"● подключено"_s);
        break;
    case Link::Reconnecting:
        out = L::t(u"◌ מתחבר מחדש…"_s, u"◌ reconnecting…"_s, u"◌ переподключение…"_s);
        break;
    case Link::Offline:
        out = L::t(u"✕ לא מקוון"_s, u"✕ offline"_s, u"✕ нет сети"_s);
        break;
    }
    if (s.queued > 0)
        out += u" · "_s + L::t(u"%1 בתור"_s, u"%1 queued"_s, u"%1 в очереди"_s).arg(s.queued);
    if (s.replyTo)
        out += u" · ↪ "_s +
               L::t(u"תשובה ל־#%1"_s, u"replying to #%1"_s, u"ответ на #%1"_s).arg(*s.replyTo);
    for (const QString &name : s.attachments)
        out += u" · 📎 "_s + TerminalText::safe(name);
    out += u" · /help"_s;
    return out;
}

QString message(const ChatMessage &m, int width, bool colour)
{
    QString who;
    if (m.role == u"assistant")
        who = L::t(u"הסוכן"_s, u"Agent"_s, u"Агент"_s);
    else if (m.source == u"telegram")
        who = L::t(u"את/ה (טלגרם)"_s, u"You (Telegram)"_s, u"Вы (Telegram)"_s);
    else
        who = L::t(u"את/ה"_s, u"You"_s, u"Вы"_s);
    const QString when =
        QDateTime::fromMSecsSinceEpoch(ChatJson::millisOf(m.createdAt)).toString(u"HH:mm"_s);
    QString heading = who;
    if (m.seq > 0)
        heading += u" · #"_s + QString::number(m.seq);
    if (const auto task = m.taskNumber())
        heading += u" · "_s + L::t(u"משימה %1"_s, u"task %1"_s, u"задача %1"_s).arg(*task);
    heading += u" · "_s + when;
    if (colour)
        heading =
            (m.role == u"assistant" ? u"\x1b[1;36m"_s : u"\x1b[1;32m"_s) + heading + u"\x1b[0m"_s;
    if (ChatLines::rightToLeft(who))
        heading.prepend(QChar(0x200F));

    QString body;
    if (m.role == u"assistant") {
        body = Markup::AnsiWriter::render(m.text, width, colour);
    } else {
        const QStringList lines =
            TerminalText::safe(m.text, TerminalText::Lines::Keep).split(u'\n');
        QStringList marked;
        for (const QString &line : lines)
            marked.append((rightToLeft(line) ? u"\u200F"_s : QString()) + line);
        body = marked.join(u'\n');
    }
    if (m.attachments) {
        for (const ChatAttachment &a : *m.attachments)
            body += u"\n📎 "_s + TerminalText::safe(a.name);
    }
    while (body.endsWith(u'\n'))
        body.chop(1);
    return heading + u'\n' + body;
}

QStringList lane(const Lane &l)
{
    QStringList out;
    QString head = u"▸ "_s + TerminalText::safe(l.heading());
    const QString latest = lastLine(l.text);
    if (!latest.isEmpty() && latest != l.heading())
        head += u": "_s + TerminalText::safe(latest);
    out.append(head);
    // The newest steps; older ones are summed up.
    constexpr qsizetype shown = 3;
    const qsizetype skipped = std::max<qsizetype>(0, l.tools.size() - shown);
    if (skipped > 0)
        out.append(u"  ⋯ "_s +
                   L::t(u"עוד %1 צעדים"_s, u"%1 more steps"_s, u"ещё шагов: %1"_s).arg(skipped));
    for (qsizetype i = skipped; i < l.tools.size(); ++i) {
        const Activity &step = l.tools.at(i);
        const QString detail = step.usefulDetail();
        out.append(u"  "_s + (step.done() ? u"✓ "_s : u"↳ "_s) + TerminalText::safe(step.title) +
                   (detail.isEmpty() ? QString() : u" — "_s + TerminalText::safe(detail)));
    }
    return out;
}

QString laneDone(const Lane &l)
{
    const QString outcome = l.outcome.value_or(u"completed"_s);
    const bool good = outcome == u"completed" || outcome == u"complete";
    QString line = (good ? u"✓ "_s : u"■ "_s) + TerminalText::safe(l.heading());
    if (!l.tools.isEmpty())
        line += u" · "_s +
                (l.tools.size() == 1
                     ? L::t(u"צעד אחד"_s, u"1 step"_s, u"1 шаг"_s)
                     : L::t(u"%1 צעדים"_s, u"%1 steps"_s, u"шагов: %1"_s).arg(l.tools.size()));
    if (!good)
        line += u" ("_s + TerminalText::safe(outcome) + u")"_s;
    return line;
}

QStringList pending(const PendingTurn &t, bool lastAttemptOffline)
{
    QString text = TerminalText::safe(firstLine(t.text));
    for (const QString &file : t.files)
        text += u" 📎 "_s + TerminalText::safe(file);
    if (t.refused) {
        return {u"⚠ "_s + L::t(u"נדחתה"_s, u"refused"_s, u"отклонено"_s) + u": "_s + text,
                u"  "_s + (t.reason.isEmpty() ? t.error : TerminalText::safe(t.reason)),
                u"  /retry "_s + t.id.left(8) + u" · /discard "_s + t.id.left(8)};
    }
    if (t.processing)
        return {u"✓ "_s + L::t(u"התקבלה"_s, u"accepted"_s, u"принято"_s) + u": "_s + text};
    if (lastAttemptOffline || !t.error.isEmpty() || !t.online) {
        return {u"⏸ "_s +
                L::t(u"בתיבת היוצאים, תישלח כשהשרת יחזור"_s,
                     u"kept in the outbox until the server is back"_s,
                     u"в исходящих, пока сервер не вернётся"_s) +
                u": "_s + text};
    }
    QString progress;
    for (const QString &p : t.uploads)
        progress += u" "_s + p;
    return {u"⏳ "_s + L::t(u"נשלחת"_s, u"sending"_s, u"отправка"_s) + u": "_s + text + progress};
}

QString refusal(const QString &text, const QString &error, const QString &reason,
                const QString &turnID)
{
    return u"⚠ "_s + L::t(u"השרת דחה את ההודעה"_s, u"The server refused"_s, u"Сервер отклонил"_s) +
           u" «"_s + TerminalText::safe(firstLine(text)) + u"»: "_s +
           (reason.isEmpty() ? error : TerminalText::safe(reason)) + u"\n  /retry "_s +
           turnID.left(8) + u" · /discard "_s + turnID.left(8);
}

QString banner()
{
    return L::t(
        u"שיחה עם הסוכן. Enter שולח, Alt-Enter שורה חדשה, ‎/help‎ לפקודות, ‎/quit‎ או Ctrl-D ליציאה."_s,
        u"Chat with the agent. Enter sends, Alt-Enter starts a new line, /help lists commands, /quit or Ctrl-D quits."_s,
        u"Разговор с агентом. Enter отправляет, Alt-Enter — новая строка, /help — команды, /quit или Ctrl-D — выход."_s);
}

QString help()
{
    return L::t(
        u"‎/help‎           הפקודות האלה\n"
        "‎/quit‎           יציאה (גם Ctrl-D בשורה ריקה, Ctrl-C)\n"
        "‎/retry ID‎       ניסיון חוזר של הודעה שנדחתה (די בתחילת "
        "המזהה)\n"
        "‎/discard ID‎     הוצאת הודעה מתיבת היוצאים; הטקסט חוזר לשורת "
        "הקלט\n"
        "‎/stop N‎         עצירת משימה N\n"
        "‎/reply SEQ‎      ההודעה הבאה עונה להודעה SEQ\n"
        "‎/file PATH‎      צירוף קובץ להודעה הבאה\n"
        "‎//‎טקסט          שליחת טקסט שמתחיל ב־/\n"
        "Alt-Enter או Ctrl-J: שורה חדשה · ↑/↓: היסטוריה · Ctrl-A/E/K/U/W: עריכה"_s,
        u"/help           these commands\n"
        "/quit           leave (also Ctrl-D on an empty line, Ctrl-C)\n"
        "/retry ID       try a refused turn again (the start of its id will do)\n"
        "/discard ID     take a turn out of the outbox; its text returns to the input line\n"
        "/stop N         stop task N\n"
        "/reply SEQ      the next message answers message SEQ\n"
        "/file PATH      attach a file to the next message\n"
        "//text          send a text that starts with /\n"
        "Alt-Enter or Ctrl-J: new line · Up/Down: history · Ctrl-A/E/K/U/W: editing"_s,
        u"/help           эти команды\n"
        "/quit           выход (также Ctrl-D в пустой строке, Ctrl-C)\n"
        "/retry ID       повторить отклонённое сообщение (достаточно начала id)\n"
        "/discard ID     убрать сообщение из исходящих; текст вернётся в строку ввода\n"
        "/stop N         остановить задачу N\n"
        "/reply SEQ      следующее сообщение — ответ на сообщение SEQ\n"
        "/file PATH      приложить файл к следующему сообщению\n"
        "//текст         отправить текст, начинающийся с /\n"
        "Alt-Enter или Ctrl-J: новая строка · ↑/↓: история · Ctrl-A/E/K/U/W: правка"_s);
}

bool rightToLeft(QStringView text)
{
    for (const QChar c : text) {
        switch (c.direction()) {
        case QChar::DirR:
        case QChar::DirAL:
            return true;
        case QChar::DirL:
            return false;
        default:
            break;
        }
    }
    return false;
}

} // namespace ChatLines
