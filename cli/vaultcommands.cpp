#include "vaultcommands.h"

#include "console.h"
#include "features/vault/vaultfailure.h"
#include "features/vault/vaultstore.h"
#include "features/vault/vaulttext.h"
#include "net/api.h"
#include "outcome.h"
#include "platform/guiclipboard.h"
#include "platform/pamownerauth.h"
#include "platform/sleeper.h"
#include "sessioncommands.h"
#include "text/l.h"

#include <QCoreApplication>
#include <QCoroSignal>
#include <QDir>
#include <QJsonArray>
#include <QProcess>

using namespace Qt::StringLiterals;

namespace {

// The person at this terminal: list, add and remove show or take no secret values.
class TerminalOwner : public OwnerAuth
{
public:
    QString unavailable() const override { return {}; }
    QCoro::Task<Outcome> evaluate(QString) override { co_return Outcome{true, {}}; }
};

QCoro::Task<std::optional<QString>> askPassword(QString reason)
{
    if (Console::stdinIsTerminal())
        Console::err(reason);
    const QString typed = Console::readSecret(L::t(u"הסיסמה של חשבון המערכת (%1): "_s,
                                                   u"Password of the system account (%1): "_s,
                                                   u"Пароль учётной записи системы (%1): "_s)
                                                  .arg(PamOwnerAuth::accountName()));
    co_return typed;
}

int usage()
{
    Console::err(L::t(
        u"שימוש: vault list [--json] | vault reveal ID | vault copy ID | vault generate\n"
        "       vault add KIND --title T [--field KEY=VALUE]... [--primary] | vault rm ID"_s,
        u"Usage: vault list [--json] | vault reveal ID | vault copy ID | vault generate\n"
        "       vault add KIND --title T [--field KEY=VALUE]... [--primary] | vault rm ID"_s,
        u"Использование: vault list [--json] | vault reveal ID | vault copy ID | vault generate\n"
        "       vault add KIND --title T [--field KEY=VALUE]... [--primary] | vault rm ID"_s));
    return Usage;
}

int report(const std::exception_ptr &error, const Api &api)
{
    try {
        std::rethrow_exception(error);
    } catch (const VaultFailure &failure) {
        Console::err(failure.text());
        return failure.kind == VaultFailure::Kind::Unreachable ? Unreachable : Refused;
    } catch (...) {
    }
    return Outcome::report(error, api);
}

QString line(const VaultItem &item)
{
    QStringList about;
    for (const QString &part : {item.username, item.site, item.url, item.service, item.client,
                                item.cardholder, item.location}) {
        if (!part.isEmpty() && !about.contains(part))
            about << part;
    }
    if (!item.last4.isEmpty())
        about << u"•••• "_s + item.last4;
    QString text =
        u"%1  %2  %3"_s.arg(item.id, -8).arg(VaultText::kind(item.kind), -12).arg(item.title);
    if (item.primary)
        text += u"  ["_s + VaultText::primary() + u"]"_s;
    if (!about.isEmpty())
        text += u"  · "_s + about.join(u" · "_s);
    return text;
}

QCoro::Task<int> list(VaultStore &store, bool json, const Api &api)
{
    co_await store.unlock();
    if (store.loadError())
        co_return report(store.loadError(), api);
    if (json) {
        QJsonArray items;
        for (const VaultItem &item : store.items())
            items.append(item.toJson());
        Console::json(QJsonObject{{u"items"_s, items}});
        co_return Done;
    }
    if (store.items().isEmpty()) {
        Console::err(VaultText::empty());
        Console::err(VaultText::emptyLine());
        co_return Done;
    }
    for (const VaultItem &item : store.items())
        Console::out(line(item));
    Console::err(VaultText::encrypted());
    co_return Done;
}

// Unlocks with the account password and finds the item.
QCoro::Task<std::optional<VaultItem>> unlockedItem(VaultStore &store, QString id, int *code,
                                                   const Api &api)
{
    co_await store.unlock();
    if (!store.unlocked()) {
        Console::err(store.authError());
        *code = Refused;
        co_return std::nullopt;
    }
    if (store.loadError()) {
        *code = report(store.loadError(), api);
        co_return std::nullopt;
    }
    for (const VaultItem &item : store.items()) {
        if (item.id == id)
            co_return item;
    }
    Console::err(L::t(u"אין בכספת פריט %1."_s, u"There is no vault item %1."_s,
                      u"В хранилище нет элемента %1."_s)
                     .arg(id));
    *code = Refused;
    co_return std::nullopt;
}

// The clipboard lives in a desktop process; a small helper holds it for the minute.
QCoro::Task<int> copyToClipboard(QString secret)
{
    const QString helper =
        QDir(QCoreApplication::applicationDirPath()).filePath(u"halvenmark-clip"_s);
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    const QStringList arguments{u"--lang"_s, L::current()};
    process.start(helper, arguments);
    if (!process.waitForStarted()) {
        secret.fill(u'\0');
        Console::err(
            L::t(u"לא ניתן להפעיל את %1."_s, u"Cannot start %1."_s, u"Не удалось запустить %1."_s)
                .arg(helper));
        co_return Refused;
    }
    QByteArray bytes = secret.toUtf8() + '\n';
    secret.fill(u'\0');
    process.write(bytes);
    bytes.fill('\0');
    process.closeWriteChannel();
    if (process.state() != QProcess::NotRunning)
        co_await qCoro(&process, &QProcess::finished);
    co_return process.exitStatus() == QProcess::NormalExit &&process.exitCode() == 0 ? Done
                                                                                     : Refused;
}

QCoro::Task<int> add(VaultStore &store, Invocation in, const Api &api)
{
    const auto kind = VaultKinds::from(in.args.value(1));
    if (!kind || in.args.size() != 2 || in.title.isEmpty()) {
        QStringList kinds;
        for (const VaultKind k : VaultKinds::all())
            kinds << VaultKinds::raw(k);
        Console::err(L::t(u"סוגים: %1. ‎--title‎ חובה."_s,
                          u"Kinds: %1. --title is required."_s, u"Виды: %1. --title обязателен."_s)
                         .arg(kinds.join(u", "_s)));
        co_return usage();
    }
    QMap<QString, QString> fields{{u"title"_s, in.title}};
    for (const QString &field : in.fields) {
        const qsizetype eq = field.indexOf(u'=');
        if (eq <= 0) {
            Console::err(L::t(u"‎--field‎ צריך KEY=VALUE: %1"_s,
                              u"--field needs KEY=VALUE: %1"_s,
                              u"Для --field нужно KEY=VALUE: %1"_s)
                             .arg(field));
            co_return Usage;
        }
        QString value = field.mid(eq + 1);
        // "-": the value is read from stdin, so a secret stays out of the shell's history.
        if (value == u"-")
            value = Console::readSecret(field.left(eq) + u": "_s);
        fields.insert(field.left(eq), value);
    }
    VaultItem saved;
    try {
        saved = co_await store.save(std::nullopt, *kind, fields, in.primary);
    } catch (...) {
        co_return report(std::current_exception(), api);
    }
    Console::out(line(saved));
    co_return Done;
}

} // namespace

namespace VaultCommands {

QCoro::Task<int> vault(Invocation in, const Ports &ports)
{
    const QString action = in.args.value(0);
    if (action == u"generate" && in.args.size() == 1) {
        Console::out(VaultStore::generate());
        co_return Done;
    }
    const bool withId = action == u"reveal" || action == u"copy" || action == u"rm";
    if (!(action == u"list" && in.args.size() == 1) && !(withId && in.args.size() == 2) &&
        action != u"add")
        co_return usage();
    // Checked before asking for anything: without a display there is no clipboard.
    if (action == u"copy" && !GuiClipboard::displayPresent()) {
        Console::err(
            L::t(u"אין כאן תצוגה, ולכן אין לוח העתקה. השתמשו ב־vault reveal %1."_s,
                 u"There is no display here, so no clipboard. Use vault reveal %1 instead."_s,
                 u"Здесь нет дисплея, а значит и буфера обмена. Используйте vault reveal %1."_s)
                .arg(in.args.value(1)));
        co_return Usage;
    }
    const bool ready = co_await SessionCommands::signedIn();
    if (!ready)
        co_return SignedOut;

    TerminalOwner terminal;
    PamOwnerAuth pam(askPassword);
    const bool needsOwner = action == u"reveal" || action == u"copy";
    OwnerAuth &owner =
        needsOwner ? static_cast<OwnerAuth &>(pam) : static_cast<OwnerAuth &>(terminal);
    VaultStore store(ports.api, owner, nullptr, ports.sleeper);

    if (action == u"list") {
        const int code = co_await list(store, in.json, ports.api);
        co_return code;
    }
    if (action == u"add") {
        const int code = co_await add(store, in, ports.api);
        co_return code;
    }
    if (action == u"rm") {
        try {
            co_await store.remove(in.args.value(1));
        } catch (...) {
            co_return report(std::current_exception(), ports.api);
        }
        co_return Done;
    }
    int code = Done;
    const std::optional<VaultItem> item =
        co_await unlockedItem(store, in.args.value(1), &code, ports.api);
    if (!item)
        co_return code;
    QString secret;
    try {
        secret = co_await store.reveal(*item);
    } catch (...) {
        co_return report(std::current_exception(), ports.api);
    }
    if (action == u"reveal") {
        Console::out(secret);
        secret.fill(u'\0');
        co_return Done;
    }
    const int copied = co_await copyToClipboard(std::move(secret));
    co_return copied;
}

} // namespace VaultCommands
