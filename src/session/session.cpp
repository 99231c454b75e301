#include "session.h"

#include "coachengine.h"
#include "net/api.h"
#include "net/projectcache.h"
#include "net/serveraddress.h"
#include "sessionendpoints.h"
#include "platform/appdata.h"
#include "platform/atomicfile.h"
#include "platform/secretstore.h"
#include "platform/shutdown.h"
#include "text/l.h"

using namespace Qt::StringLiterals;

#include <QCryptographicHash>
#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QPointer>

Q_LOGGING_CATEGORY(lcSession, "halvenmark.session", QtWarningMsg)

namespace {

Session *sharedSession = nullptr;

const QString langKey = u"lang"_s;

// The keychain item holds the cookie with the server it belongs to.
QString storedValue(const QUrl &server, const QString &cookie)
{
    return QString::fromUtf8(
        QJsonDocument(QJsonObject{{u"server"_s, server.toString()}, {u"cookie"_s, cookie}})
            .toJson(QJsonDocument::Compact));
}

// The cookie in a stored item when it belongs to this run's server, else empty. A bare
// cookie (written by an older version) belongs to the server compiled into the build.
QString cookieOf(const QUrl &server, const std::optional<QString> &stored)
{
    if (!stored || stored->isEmpty())
        return {};
    const QJsonDocument doc = QJsonDocument::fromJson(stored->toUtf8());
    if (!doc.isObject())
        return ServerAddress::compiledIn().url == server ? *stored : QString();
    const QJsonObject o = doc.object();
    if (o.value(u"server").toString() != server.toString())
        return {};
    return o.value(u"cookie").toString();
}

// Runs one tear-down step; a failing step never stops the ones after it.
template<class F>
void step(const char *name, F &&f)
{
    try {
        f();
    } catch (const std::exception &e) {
        qCWarning(lcSession) << "sign-out step" << name << "failed:" << e.what();
    } catch (...) {
        qCWarning(lcSession) << "sign-out step" << name << "failed";
    }
}

} // namespace

Session::Session(Api &api, std::unique_ptr<SecretStore> secrets, QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_secrets(std::move(secrets))
    , m_coach(new CoachEngine(this))
    , m_gate(Gate::Checking)
{
    Q_ASSERT(!sharedSession);
    sharedSession = this;
    m_api.setIdentity(this);
}

Session::~Session()
{
    if (sharedSession == this) {
        sharedSession = nullptr;
        m_api.setIdentity(nullptr);
    }
}

Session *Session::shared()
{
    return sharedSession;
}

QString Session::exitText(Exit exit)
{
    switch (exit) {
    case Exit::Fresh:
        return L::t(u"היכנסו עם פרטי הכניסה הקבועים שלכם."_s,
                    u"Sign in with your permanent credentials."_s,
                    u"Войдите с постоянными учётными данными."_s);
    case Exit::SignedOut:
        return L::t(u"יצאתם מהחשבון."_s, u"Signed out."_s,
                    u"Вы вышли из аккаунта."_s);
    case Exit::Expired:
        return L::t(u"ההתחברות הסתיימה. היכנסו כדי להמשיך."_s,
                    u"Your session ended. Sign in to continue."_s,
                    u"Сеанс завершён. Войдите, чтобы продолжить."_s);
    case Exit::Deleted:
        return L::t(u"החשבון שלכם נמחק."_s, u"Your account was deleted."_s,
                    u"Ваш аккаунт удалён."_s);
    }
    return {};
}

QString Session::gateName(Gate gate)
{
    switch (gate) {
    case Gate::Out: return u"out"_s;
    case Gate::Checking: return u"checking"_s;
    case Gate::Offline: return u"offline"_s;
    case Gate::Ready: return u"ready"_s;
    }
    return {};
}

QStringList Session::pages() const
{
    QStringList out(m_profile.pages.begin(), m_profile.pages.end());
    out.sort();
    return out;
}

QVariantMap Session::prefs() const
{
    QVariantMap out;
    for (auto it = m_profile.prefs.begin(); it != m_profile.prefs.end(); ++it)
        out.insert(it.key(), it.value());
    return out;
}

QString Session::sessionHash(const QString &cookie)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(cookie.toUtf8(), QCryptographicHash::Sha256).toHex());
}

QString Session::sessionHash() const
{
    return sessionHash(m_cookie);
}

QString Session::offlineProfileFile() const
{
    return AppData::path(u"session-profile.json"_s);
}

void Session::onForget(std::function<void()> hook)
{
    m_forgetHooks.push_back(std::move(hook));
}

void Session::setGate(Gate gate, Exit exit)
{
    if (m_gate == gate && m_exit == exit)
        return;
    m_gate = gate;
    m_exit = exit;
    emit gateChanged();
}

void Session::setProfile(const Profile &profile)
{
    if (m_profile == profile)
        return;
    m_profile = profile;
    emit profileChanged();
}

void Session::applyLanguage(const QHash<QString, QString> &prefs)
{
    const QString lang = prefs.value(langKey);
    if (!lang.isEmpty())
        L::set(lang);
}

QCoro::Task<> Session::boot()
{
    QPointer<Session> self(this);
    setGate(Gate::Checking);
    m_bootFailure = nullptr;
    const std::optional<QString> stored = co_await m_secrets->read(QString::fromLatin1(cookieItem));
    if (!self)
        co_return;
    // A session of another server is not this one's: signed out here, nothing sent.
    m_cookie = cookieOf(m_api.base(), stored);
    if (m_cookie.isEmpty()) {
        setGate(Gate::Out, Exit::Fresh);
        co_return;
    }
    const bool restored = restoreOfflineProfile();
    if (restored)
        primeTabPages(m_api); // runs on by itself; the session does not wait for it

    const QString cookie = m_cookie;
    try {
        co_await refresh();
        if (!self)
            co_return;
        if (m_cookie == cookie)
            setGate(Gate::Ready);
    } catch (const Api::Unauthorized &) {
        // A 401 to this cookie has already signed out; a profile that says "not signed in" has not.
        if (self && signedIn() && m_cookie == cookie)
            forget(Exit::Expired);
    } catch (const std::exception &e) {
        qCInfo(lcSession) << "boot could not confirm the session:" << e.what();
        if (!self)
            co_return;
        m_bootFailure = std::current_exception();
        if (restored && signedIn() && m_cookie == cookie)
            setGate(Gate::Offline);
    }
}

QCoro::Task<> Session::refresh()
{
    QPointer<Session> self(this);
    const QString cookie = m_cookie;
    // Whatever happened while we waited, the answers count only for the cookie we asked with.
    const auto stillOurs = [&] {
        if (!self || cookie.isEmpty() || m_cookie != cookie)
            throw Api::Unauthorized();
    };
    // Both requests are in flight together; QCoro tasks start at once.
    QCoro::Task<Api::Page<Prefs>> prefsRead = m_api.page<Prefs>(SessionEndpoints::prefs());
    std::exception_ptr failed;
    Me me;
    try {
        me = (co_await m_api.page<Me>(SessionEndpoints::me())).value;
    } catch (...) {
        failed = std::current_exception();
    }
    std::optional<Prefs> prefs;
    try {
        prefs = (co_await prefsRead).value;
    } catch (...) {
        if (!failed)
            failed = std::current_exception();
    }
    if (failed)
        std::rethrow_exception(failed);
    stillOurs();
    if (!me.authenticated)
        throw Api::Unauthorized();
    if (me.profile.user.isEmpty())
        throw DecodeError(u"user"_s, u"a name"_s, u"nothing"_s);

    Profile next = me.profile;
    next.prefs = prefs->prefs;
    if (next.user != m_profile.user || !next.isOwner())
        m_coach->close();
    setProfile(next);
    if (next.prefs.value(langKey).isEmpty()) {
        // The server learns the device's language (not a one-run --lang, not a local choice);
        // the profile stands without it.
        try {
            co_await setPref(langKey, L::deviceDefault());
        } catch (const std::exception &e) {
            qCInfo(lcSession) << "could not store the language preference:" << e.what();
        }
        stillOurs();
    } else {
        applyLanguage(next.prefs);
    }
    saveOfflineProfile();
}

QCoro::Task<> Session::signIn(QString username, QString password)
{
    QPointer<Session> self(this);
    const Api::Login login = co_await m_api.login(username, password);
    if (!self)
        co_return;
    Profile known;
    known.user = login.user;
    known.role = login.role;
    co_await adopt(login.cookie, known);
}

QCoro::Task<> Session::signIn(QString token)
{
    QPointer<Session> self(this);
    const QString cookie = co_await m_api.exchange(token);
    if (!self)
        co_return;
    co_await adopt(cookie, Profile());
}

QCoro::Task<> Session::adopt(QString cookie, Profile known)
{
    QPointer<Session> self(this);
    m_cookie = cookie;
    m_coach->close();
    if (!known.user.isEmpty())
        setProfile(known);
    try {
        co_await refresh();
    } catch (...) {
        // Nothing of a sign-in that did not succeed stays, on disk or in memory.
        if (self && m_cookie == cookie) {
            m_cookie.clear();
            setProfile(Profile());
            setGate(Gate::Out, m_gate == Gate::Out ? m_exit : Exit::Fresh);
        }
        throw;
    }
    // Kept only now that the server has confirmed it.
    const bool saved =
        co_await m_secrets->write(QString::fromLatin1(cookieItem), storedValue(m_api.base(), cookie));
    if (!saved)
        qCWarning(lcSession) << "the session cookie could not be saved; it lasts for this run only";
    if (!self)
        co_return;
    if (m_cookie != cookie)
        throw Api::Unauthorized();
    setGate(Gate::Ready);
}

QCoro::Task<> Session::signOut()
{
    QPointer<Session> self(this);
    try {
        co_await m_api.post(SessionEndpoints::logout(), QJsonObject());
    } catch (...) {
        // Signing out locally never depends on the server.
    }
    if (!self)
        co_return;
    m_coach->close();
    forget(Exit::SignedOut);
    co_await settle();
}

QCoro::Task<> Session::settle()
{
    QPointer<Session> self(this);
    while (self && m_wipe) {
        QCoro::Task<> wipe = std::move(*m_wipe);
        m_wipe.reset();
        co_await wipe;
    }
}

void Session::forget(Exit exit)
{
    const QString cookie = m_cookie;
    step("cookie", [&] { m_cookie.clear(); });
    step("stored session", [&] {
        QCoro::Task<> wipe = wipeStored(cookie);
        if (!wipe.isReady())
            m_wipe = std::move(wipe);
    });
    for (const auto &hook : m_forgetHooks)
        step("reset hook", hook);
    step("profile", [&] { setProfile(Profile()); });
    setGate(Gate::Out, exit);
}

QCoro::Task<> Session::wipeStored(QString cookie)
{
    QPointer<Session> self(this);
    const QString item = QString::fromLatin1(cookieItem);
    std::optional<QString> stored;
    try {
        stored = co_await m_secrets->read(item);
    } catch (...) {
    }
    if (!self)
        co_return;
    // Another process may have signed in meanwhile: its cookie, profile and pages stay.
    const QString now = cookieOf(m_api.base(), stored);
    if (!now.isEmpty() && now != cookie) {
        qCInfo(lcSession) << "a newer sign-in is stored; leaving it in place";
        co_return;
    }
    step("profile file", [&] {
        const auto bytes = AtomicFile::read(offlineProfileFile());
        bool ours = true;
        try {
            ours = !bytes || OfflineProfile::fromJson(Decode::parse(*bytes)).sessionHash
                                 == sessionHash(cookie);
        } catch (const DecodeError &) {
        }
        if (bytes && ours)
            QFile::remove(offlineProfileFile());
    });
    step("page cache", [] { ProjectCache::clear(); });
    bool removed = true;
    if (stored) {
        try {
            removed = co_await m_secrets->remove(item);
        } catch (...) {
            removed = false;
        }
    }
    if (!removed)
        qCWarning(lcSession) << "the stored session could not be removed";
}

void Session::rejected()
{
    m_coach->close();
    if (signedIn())
        forget(Exit::Expired);
}

QCoro::Task<bool> Session::deleteAccount()
{
    QPointer<Session> self(this);
    QJsonObject reply;
    try {
        reply = co_await m_api.post(SessionEndpoints::deleteAccount(), QJsonObject());
    } catch (const std::exception &e) {
        qCInfo(lcSession) << "delete-account failed:" << e.what();
        co_return false;
    }
    if (!self || reply.value(u"deleted") != QJsonValue(true))
        co_return false;
    m_coach->close();
    forget(Exit::Deleted);
    co_await settle();
    co_return true;
}

QCoro::Task<> Session::setPref(QString key, QString value)
{
    if (key == langKey)
        L::set(value);
    Profile next = m_profile;
    next.prefs.insert(key, value);
    setProfile(next);
    QJsonObject body;
    body.insert(key, value);
    co_await m_api.post(SessionEndpoints::prefs(), body);
}

void Session::saveOfflineProfile() const
{
    if (m_cookie.isEmpty())
        return;
    const OfflineProfile copy{sessionHash(), m_profile, m_api.base().toString()};
    const QByteArray bytes = QJsonDocument(copy.toJson()).toJson();
    if (AtomicFile::read(offlineProfileFile()) == bytes)
        return; // most runs: nothing changed since the last
    if (!AtomicFile::write(offlineProfileFile(), bytes))
        qCWarning(lcSession) << "the offline profile could not be saved";
}

bool Session::restoreOfflineProfile()
{
    const auto bytes = AtomicFile::read(offlineProfileFile());
    if (!bytes)
        return false;
    try {
        const OfflineProfile copy = OfflineProfile::fromJson(Decode::parse(*bytes));
        // One without a server was written by an older version, for the built-in server.
        const bool ourServer = copy.server.isEmpty()
                                   ? ServerAddress::compiledIn().url == m_api.base()
                                   : copy.server == m_api.base().toString();
        if (copy.sessionHash != sessionHash() || !ourServer)
            return false;
        setProfile(copy.profile);
        applyLanguage(copy.profile.prefs);
        return true;
    } catch (const DecodeError &e) {
        qCInfo(lcSession) << "ignoring an unreadable offline profile:" << e.description();
        return false;
    }
}

QCoro::Task<> Session::primeTabPages(Api &api)
{
    // Static work only: the session may be gone before these answer.
    const QStringList paths = SessionEndpoints::tabPages();
    for (const QString &path : paths) {
        if (Shutdown::begun())
            co_return;
        try {
            co_await api.page<QJsonValue>(path);
        } catch (...) {
        }
    }
}
