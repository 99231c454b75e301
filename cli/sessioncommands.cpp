#include "sessioncommands.h"

#include "console.h"
#include "outcome.h"
#include "terminaltext.h"
#include "chat/store/chatstores.h"
#include "session/session.h"
#include "text/l.h"
#include "text/word.h"

using namespace Qt::StringLiterals;

#include <QJsonArray>
#include <QJsonObject>
#include <QMetaEnum>

namespace {

Session &session()
{
    return *Session::shared();
}

QString exitName(Session::Exit exit)
{
    switch (exit) {
    case Session::Exit::Fresh: return u"fresh"_s;
    case Session::Exit::SignedOut: return u"signedOut"_s;
    case Session::Exit::Expired: return u"expired"_s;
    case Session::Exit::Deleted: return u"deleted"_s;
    }
    return {};
}

QString signedInAs(const Session &s)
{
    return L::t(u"מחוברים בתור %1 (%2)"_s, u"Signed in as %1 (%2)"_s,
                u"Вы вошли как %1 (%2)"_s)
        .arg(TerminalText::safe(s.label()), TerminalText::safe(Word::of(s.role())));
}

} // namespace

namespace SessionCommands {

QCoro::Task<bool> signedIn()
{
    co_await session().boot();
    if (session().gate() == Session::Gate::Out) {
        Outcome::notSignedIn();
        co_return false;
    }
    co_return true;
}

QCoro::Task<int> login(Invocation in, const Ports &ports)
{
    if (in.user.isEmpty() == in.token.isEmpty()) {
        Console::err(L::t(u"יש לציין ‎--user NAME‎ או ‎--token TOKEN‎."_s,
                          u"Give either --user NAME or --token TOKEN."_s,
                          u"Укажите --user NAME или --token TOKEN."_s));
        co_return Usage;
    }
    try {
        if (!in.token.isEmpty()) {
            co_await session().signIn(in.token);
        } else {
            const QString password = Console::readSecret(
                L::t(u"סיסמה: "_s, u"Password: "_s, u"Пароль: "_s));
            co_await session().signIn(in.user, password);
        }
    } catch (...) {
        co_return Outcome::report(std::current_exception(), ports.api);
    }
    Console::err(signedInAs(session()));
    co_return Done;
}

QCoro::Task<int> whoami(Invocation in, const Ports &)
{
    co_await session().boot();
    const Session &s = session();
    const Session::Gate gate = s.gate();
    if (in.json) {
        QJsonObject out{{u"gate"_s, Session::gateName(gate)},
                        {u"user"_s, s.user()},
                        {u"role"_s, s.role()},
                        {u"pages"_s, QJsonArray::fromStringList(s.pages())}};
        if (gate == Session::Gate::Out) {
            out.insert(u"exit"_s, exitName(s.exit()));
            out.insert(u"message"_s, s.exitText());
        } else {
            out.insert(u"email"_s, s.email());
            out.insert(u"label"_s, s.label());
            out.insert(u"workspace"_s, s.workspace());
            out.insert(u"voice_live"_s, s.voiceLive());
        }
        Console::json(out);
    }
    // The server answered, but with something unusable: not the same as not answering.
    if (const auto code = Outcome::badAnswer(s.bootFailure()))
        co_return *code;
    switch (gate) {
    case Session::Gate::Out:
        if (!in.json)
            Outcome::notSignedIn();
        co_return SignedOut;
    case Session::Gate::Checking:
        // A cookie, but neither the server nor a saved profile to say whose.
        Console::err(L::t(u"אין חיבור לשרת ואין פרופיל שמור להצגה."_s,
                          u"Cannot reach the server, and there is no saved profile to show."_s,
                          u"Нет связи с сервером, и сохранённого профиля нет."_s));
        co_return Unreachable;
    case Session::Gate::Offline:
        Console::err(L::t(u"אין חיבור לשרת: מוצג הפרופיל השמור."_s,
                          u"Cannot reach the server: showing the saved profile."_s,
                          u"Нет связи с сервером: показан сохранённый профиль."_s));
        break;
    case Session::Gate::Ready:
        break;
    }
    if (!in.json) {
        Console::out(signedInAs(s));
        if (!s.email().isEmpty())
            Console::out(L::t(u"דוא״ל: %1"_s, u"E-mail: %1"_s,
                              u"Эл. почта: %1"_s)
                             .arg(TerminalText::safe(s.email())));
        Console::out(L::t(u"דפים: %1"_s, u"Pages: %1"_s,
                          u"Разделы: %1"_s)
                         .arg(s.isOwner() ? L::t(u"הכול"_s, u"all"_s,
                                                 u"все"_s)
                                          : TerminalText::safe(s.pages().join(u", "_s))));
        if (!s.workspace().isEmpty())
            Console::out(L::t(u"סביבת עבודה: %1"_s, u"Workspace: %1"_s,
                              u"Рабочее пространство: %1"_s)
                             .arg(TerminalText::safe(s.workspace())));
    }
    co_return Done;
}

QCoro::Task<int> logout(Invocation in, const Ports &)
{
    co_await session().boot();
    if (session().gate() == Session::Gate::Out)
        co_return Outcome::notSignedIn();
    // Turns not yet sent are the user's own words: signing out drops them only when asked to.
    const QString account = session().user();
    const int unsent = ChatStores::unsentCount(account);
    const bool force = in.force || (unsent > 0 && Console::confirm(L::t(
                                         u"%1 הודעות עוד לא נשלחו; יציאה תמחק אותן. לצאת בכל זאת?"_s,
                                         u"%1 messages are not sent yet; signing out deletes them. Sign out anyway?"_s,
                                         u"%1 сообщений ещё не отправлено; выход удалит их. Всё равно выйти?"_s)
                                         .arg(unsent)));
    if (unsent > 0 && !force) {
        Console::err(L::t(u"%1 הודעות עוד לא נשלחו; יציאה תמחק אותן. ‎chat drain‎ שולח אותן, "
                          u"‎logout --yes‎ יוצא בכל זאת."_s,
                          u"%1 messages are not sent yet; signing out deletes them. chat drain "
                          u"sends them, logout --yes signs out anyway."_s,
                          u"%1 сообщений ещё не отправлено; выход удалит их. chat drain отправит "
                          u"их, logout --yes выйдет всё равно."_s)
                         .arg(unsent));
        co_return Refused;
    }
    const QStringList outboxes = ChatStores::outboxFolders(account);
    co_await session().signOut();
    if (force)
        ChatStores::removeOutboxes(outboxes);
    Console::err(session().exitText());
    co_return Done;
}

QCoro::Task<int> deleteAccount(Invocation in, const Ports &)
{
    const bool ready = co_await signedIn();
    if (!ready)
        co_return SignedOut;
    // Asked after the sign-in check: there is an account to name.
    const int unsent = ChatStores::unsentCount(session().user());
    const QString question =
        L::t(u"למחוק את החשבון %1 וכל מה שבו%2? אי אפשר לבטל."_s, u"Delete the account %1 and all it holds%2? This cannot be undone."_s,
             u"Удалить аккаунт %1 и всё, что в нём%2? Это нельзя отменить."_s)
            .arg(TerminalText::safe(session().user()),
                 unsent > 0 ? L::t(u", כולל %1 הודעות שלא נשלחו"_s, u", with %1 messages not yet sent"_s,
                                   u", включая %1 неотправленных сообщений"_s)
                                  .arg(unsent)
                            : QString());
    if (!in.force && !Console::confirm(question)) {
        Console::err(L::t(u"החשבון לא נמחק. ‎delete-account --yes‎ מוחק בלי לשאול."_s,
                          u"The account was not deleted. delete-account --yes deletes it without asking."_s,
                          u"Аккаунт не удалён. delete-account --yes удалит без вопроса."_s));
        co_return Refused;
    }
    const QStringList outboxes = ChatStores::outboxFolders(session().user());
    const bool deleted = co_await session().deleteAccount();
    if (deleted) {
        ChatStores::removeOutboxes(outboxes);
        Console::err(session().exitText());
        co_return Done;
    }
    Console::err(L::t(u"החשבון לא נמחק."_s, u"The account was not deleted."_s,
                      u"Аккаунт не удалён."_s));
    co_return Refused;
}

QCoro::Task<int> prefs(Invocation in, const Ports &ports)
{
    const bool setting = !in.args.isEmpty() && in.args.first() == u"set";
    if (setting ? in.args.size() != 3 : !in.args.isEmpty()) {
        Console::err(L::t(u"שימוש: prefs [set KEY VALUE]"_s,
                          u"Usage: prefs [set KEY VALUE]"_s,
                          u"Использование: prefs [set KEY VALUE]"_s));
        co_return Usage;
    }
    const bool ready = co_await signedIn();
    if (!ready)
        co_return SignedOut;
    if (setting) {
        try {
            co_await session().setPref(in.args.at(1), in.args.at(2));
        } catch (...) {
            co_return Outcome::report(std::current_exception(), ports.api);
        }
    }
    const QVariantMap prefs = session().prefs();
    if (in.json) {
        Console::json(QJsonObject::fromVariantMap(prefs));
    } else if (!setting) {
        for (auto it = prefs.begin(); it != prefs.end(); ++it)
            Console::out(TerminalText::safe(it.key()) + u" = "_s
                         + TerminalText::safe(it.value().toString()));
    }
    co_return Done;
}

QCoro::Task<int> lang(Invocation in, const Ports &ports)
{
    const bool setting = !in.args.isEmpty() && in.args.first() == u"set";
    const QString code = setting && in.args.size() == 2 ? in.args.at(1) : QString();
    const bool known = code == u"he" || code == u"en" || code == u"ru";
    if (setting ? !known : !in.args.isEmpty()) {
        Console::err(L::t(u"שימוש: lang [set he|en|ru]"_s, u"Usage: lang [set he|en|ru]"_s,
                          u"Использование: lang [set he|en|ru]"_s));
        co_return Usage;
    }
    if (!setting) {
        Console::out(L::current());
        co_return Done;
    }
    // The new language shows at once, even when this run was started with another.
    L::pin(QString());
    L::set(code);
    co_await session().boot();
    if (session().gate() != Session::Gate::Out) {
        try {
            co_await session().setPref(u"lang"_s, code);
        } catch (...) {
            Console::err(L::t(u"השפה נשמרה במכשיר הזה בלבד."_s, u"The language is kept on this device only."_s,
                              u"Язык сохранён только на этом устройстве."_s));
            co_return Outcome::report(std::current_exception(), ports.api);
        }
    }
    Console::out(L::current());
    co_return Done;
}

} // namespace SessionCommands
