#include "app.h"

#include "platform/clock.h"
#include "chat/store/chatrowsmodel.h"
#include "chatcontroller.h"
#include "net/failuretext.h"
#include "platform/appdata.h"
#include "text/l.h"
#include "text/since.h"
#include "text/tasktext.h"
#include "text/word.h"

#include <QDateTime>
#include <QFile>
#include <QLoggingCategory>
#include <QQmlEngine>
#include <QQuickWindow>

#include <utility>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcStartup, "halvenmark.desktop.startup", QtWarningMsg)

namespace {

// Resident memory of this process in KiB; 0 where /proc does not say.
qint64 residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return 0;
}

App *s_instance = nullptr;

const QString skinKey = u"rb.skin"_s;
const QString appearanceKey = u"rb.appearance"_s;
const QString onboardedKey = u"rb.onboarded"_s;
const QString geometryKey = u"desktop.window"_s;

} // namespace

App::App(Session *session, const Ports &ports, ChatStores &chats, QObject *parent)
    : QObject(parent)
    , m_session(session)
    , m_ports(ports)
    , m_chats(chats)
    , m_language(new Language(this))
    , m_voice(new VoiceController(VoiceController::platform(ports.api, ports), this))
{
    s_instance = this;
    m_sinceStart.start();
    connect(m_session, &Session::gateChanged, this, &App::follow);
    connect(m_session, &Session::profileChanged, this, &App::follow);
    // Nobody's voice plays on after sign-out.
    connect(m_session, &Session::gateChanged, m_voice, [this] {
        if (m_session->gate() == Session::Gate::Out)
            m_voice->stop();
    });
}

App::~App()
{
    if (s_instance == this)
        s_instance = nullptr;
}

App *App::create(QQmlEngine *, QJSEngine *)
{
    QQmlEngine::setObjectOwnership(s_instance, QQmlEngine::CppOwnership);
    return s_instance;
}

App *App::instance()
{
    return s_instance;
}

QString App::gate() const
{
    switch (m_session->gate()) {
    case Session::Gate::Out:
        return u"out"_s;
    case Session::Gate::Checking:
        return u"checking"_s;
    case Session::Gate::Offline:
        return u"offline"_s;
    case Session::Gate::Ready:
        return u"ready"_s;
    }
    return u"out"_s;
}

QString App::skin() const
{
    return AppData::setting(skinKey, u"classic"_s).toString();
}

void App::setSkin(const QString &skin)
{
    if (skin == this->skin())
        return;
    AppData::setSetting(skinKey, skin);
    emit skinChanged();
}

QString App::appearance() const
{
    const QString stored = AppData::setting(appearanceKey).toString();
    return stored == u"light" || stored == u"dark" ? stored : u"auto"_s;
}

void App::setAppearance(const QString &appearance)
{
    if (appearance == this->appearance())
        return;
    AppData::setSetting(appearanceKey, appearance);
    emit appearanceChanged();
}

bool App::onboarded() const
{
    return AppData::setting(onboardedKey, false).toBool();
}

void App::setOnboarded(bool done)
{
    if (done == onboarded())
        return;
    AppData::setSetting(onboardedKey, done);
    emit onboardedChanged();
}

void App::boot()
{
    if (!AppData::setting(appearanceKey).isValid())
        AppData::setSetting(appearanceKey, u"auto"_s);
    run([session = m_session]() { return session->boot(); });
}

QString App::t(const QString &he, const QString &en, const QString &ru) const
{
    return L::t(he, en, ru);
}

QString App::word(const QString &raw) const
{
    return Word::of(raw);
}

QString App::age(const QVariant &moment) const
{
    QDateTime when;
    if (moment.typeId() == QMetaType::QString)
        when = QDateTime::fromString(moment.toString(), Qt::ISODate);
    else if (moment.canConvert<double>() && moment.toDouble() > 0)
        when = QDateTime::fromMSecsSinceEpoch(qint64(moment.toDouble() * 1000));
    if (!when.isValid())
        return {};
    return Since::shortAge(when.secsTo(m_ports.clock.now()));
}

QString App::pageTitle(const QString &page) const
{
    if (page == u"chat")
        return L::t(u"שיחה"_s, u"Chat"_s, u"Чат"_s);
    if (page == u"projects")
        return L::t(u"פרויקטים"_s, u"Projects"_s, u"Проекты"_s);
    if (page == u"tasks")
        return TaskText::heading();
    if (page == u"automations")
        return L::t(u"אוטומציות"_s, u"Automations"_s, u"Автоматизации"_s);
    if (page == u"settings")
        return L::t(u"הגדרות"_s, u"Settings"_s, u"Настройки"_s);
    if (page == u"health")
        return L::t(u"בריאות"_s, u"Health"_s, u"Здоровье"_s);
    if (page == u"vault")
        return L::t(u"כספת"_s, u"Vault"_s, u"Хранилище"_s);
    // Pages the app has no screen of its own for keep the server's name, readably.
    QString shown = page;
    shown.replace(u'-', u' ').replace(u'_', u' ');
    if (!shown.isEmpty())
        shown[0] = shown[0].toUpper();
    return shown;
}

void App::signIn(const QString &user, const QString &password)
{
    if (user.trimmed().isEmpty() || password.isEmpty()) {
        setError(L::t(u"יש להזין שם משתמש וסיסמה."_s, u"Enter your user name and password."_s,
                      u"Введите имя пользователя и пароль."_s));
        return;
    }
    run([session = m_session, user = user.trimmed(), password]() {
        return session->signIn(user, password);
    });
}

void App::signInWithToken(const QString &token)
{
    if (token.trimmed().isEmpty()) {
        setError(L::t(u"יש להזין את קוד הכניסה."_s, u"Enter the sign-in code."_s,
                      u"Введите код входа."_s));
        return;
    }
    run([session = m_session, token = token.trimmed()]() { return session->signIn(token); });
}

void App::signOut()
{
    run([session = m_session]() { return session->signOut(); });
}

void App::deleteAccount()
{
    QPointer<App> self(this);
    run([self]() -> QCoro::Task<> {
        if (!self)
            co_return;
        const bool deleted = co_await self->m_session->deleteAccount();
        if (self && !deleted)
            self->setError(L::t(u"החשבון לא נמחק. נסו שוב מאוחר יותר."_s,
                                u"The account was not deleted. Try again later."_s,
                                u"Аккаунт не удалён. Попробуйте позже."_s));
    });
}

void App::setLanguage(const QString &code)
{
    if (m_session->signedIn())
        run([session = m_session, code]() { return session->setPref(u"lang"_s, code); });
    L::set(code);
}

void App::clearError()
{
    setError(QString());
}

void App::openProject(int id, const QString &name)
{
    if (id < 1 || !m_session->signedIn())
        return;
    closeProject();
    m_projectChat =
        new ChatController(m_chats, ChatScope::project(id), m_session->user(), m_session->role(),
                           this);
    m_projectChat->setVoice(m_voice);
    m_projectName = name;
    emit projectChatChanged();
    m_projectChat->open();
}

void App::closeProject()
{
    if (!m_projectChat)
        return;
    ChatController *old = m_projectChat;
    m_projectChat = nullptr;
    m_projectName.clear();
    emit projectChatChanged();
    old->deleteLater();
}

QRect App::windowGeometry() const
{
    return AppData::setting(geometryKey).toRect();
}

void App::saveWindowGeometry(const QRect &rect)
{
    if (rect.width() > 0 && rect.height() > 0)
        AppData::setSetting(geometryKey, rect);
}

void App::shellShown(QQuickWindow *window)
{
    if (!window || m_shellShown)
        return;
    m_shellShown = true;
    auto once = std::make_shared<QMetaObject::Connection>();
    // frameSwapped comes from the render thread: more than one may be queued already.
    *once = connect(window, &QQuickWindow::frameSwapped, this, [this, once] {
        if (!*once)
            return;
        disconnect(*once);
        *once = {};
        const int rows = m_chat ? m_chat->store()->rows()->rowCount() : 0;
        qCInfo(lcStartup).nospace()
            << "shell first frame " << m_sinceStart.elapsed() << " ms after start, " << rows
            << " chat rows, " << residentKiB() / 1024 << " MiB resident";
    });
}

void App::activated()
{
    const qint64 now = m_ports.clock.now().toMSecsSinceEpoch();
    if (!m_session->signedIn() || now - m_lastCatchUp < 10'000)
        return;
    m_lastCatchUp = now;
    catchUp(QPointer<App>(this));
}

QCoro::Task<> App::catchUp(QPointer<App> app)
{
    try {
        co_await app->m_session->refresh();
    } catch (...) {
        // Offline or refused: the gate and the banner already say so.
    }
    if (!app || !app->m_chat)
        co_return;
    app->m_chat->refresh();
}

void App::follow()
{
    emit gateChanged();
    const bool in = m_session->signedIn() && !m_session->user().isEmpty();
    if (m_chat && (!in || m_chat->account() != m_session->user())) {
        ChatController *old = m_chat;
        m_chat = nullptr;
        CallController *oldCall = std::exchange(m_call, nullptr);
        emit chatChanged();
        old->deleteLater();
        if (oldCall) {
            oldCall->hangUp(); // at once: the devices close with the account
            oldCall->deleteLater();
        }
    }
    if (!in)
        closeProject();
    if (in && !m_chat) {
        m_chat = new ChatController(m_chats, ChatScope::main(), m_session->user(),
                                    m_session->role(), this);
        m_chat->setVoice(m_voice);
        m_call =
            CallController::live(m_ports.api, ChatScope::main(), m_session->user(), m_ports, this);
        // A call and a voice message must not talk over each other.
        connect(m_call, &CallController::phaseChanged, m_voice, [this, call = m_call] {
            if (call->active())
                m_voice->stop();
        });
        emit chatChanged();
        m_chat->open();
        m_call->open();
    }
}

void App::setBusy(bool busy)
{
    if (busy == m_busy)
        return;
    m_busy = busy;
    emit busyChanged();
}

void App::setError(const QString &error)
{
    if (error == m_error)
        return;
    m_error = error;
    emit errorChanged();
}

void App::run(std::function<QCoro::Task<>()> work)
{
    setError(QString());
    runGuarded(QPointer<App>(this), std::move(work));
}

QCoro::Task<> App::runGuarded(QPointer<App> app, std::function<QCoro::Task<>()> work)
{
    app->setBusy(true);
    std::exception_ptr failed;
    try {
        co_await work();
    } catch (...) {
        failed = std::current_exception();
    }
    if (!app)
        co_return;
    app->setBusy(false);
    if (failed)
        app->setError(FailureText::of(failed));
}
