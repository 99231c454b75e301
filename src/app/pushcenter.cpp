#include "pushcenter.h"
#include "pushendpoints.h"
#include "app/applog.h"

#include "buildinfo.h"
#include "net/api.h"
#include "net/failuretext.h"
#include "platform/appdata.h"
#include "platform/notifier.h"
#include "text/l.h"

#include <QLoggingCategory>
#include <QSysInfo>

using namespace Qt::StringLiterals;

namespace {
PushCenter *g_shared = nullptr;
} // namespace

PushCenter::PushCenter(Api &api, Notifier *notifier, QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_notifier(notifier)
{
    if (!g_shared)
        g_shared = this;
}

PushCenter::~PushCenter()
{
    if (g_shared == this)
        g_shared = nullptr;
}

PushCenter *PushCenter::shared()
{
    return g_shared;
}

bool PushCenter::registered()
{
    return AppData::setting(QString::fromLatin1(marker), false).toBool();
}

void PushCenter::arm()
{
    if (m_notifier) {
        connect(m_notifier, &Notifier::clicked, this, [this](const QString &key) {
            if (const std::optional<PushRoute> found = PushRoute::parse(key))
                open(*found);
        });
        connect(m_notifier, &Notifier::availableChanged, this, &PushCenter::syncRegistration);
    }
    syncRegistration();
}

void PushCenter::syncRegistration()
{
    const Authorization now = m_notifier && m_notifier->available() ? Authorization::Authorized
                                                                    : Authorization::Unavailable;
    if (now != m_authorization) {
        m_authorization = now;
        emit authorizationChanged();
    }
}

void PushCenter::didRegister(const QByteArray &deviceToken)
{
    const QString hex = QString::fromLatin1(deviceToken.toHex());
    if (hex != m_token) {
        m_token = hex;
        emit tokenChanged();
    }
    auto publishing = publishToken(hex);
    Q_UNUSED(publishing)
}

void PushCenter::didFail(const QString &error)
{
    AppData::removeSetting(QString::fromLatin1(marker));
    setFailure(error);
}

QCoro::Task<bool> PushCenter::publishToken(QString token)
{
    QPointer<PushCenter> self(this);
    const QJsonObject body{
        {u"token"_s, token},
        {u"env"_s, u"production"_s},
        {u"device_name"_s, QSysInfo::machineHostName()},
        {u"app_build"_s, QString::fromLatin1(BuildInfo::build)},
    };
    std::exception_ptr error;
    try {
        co_await m_api.post(PushEndpoints::registration(), body);
    } catch (...) {
        error = std::current_exception();
    }
    if (error) {
        AppData::removeSetting(QString::fromLatin1(marker));
        QString text = FailureText::of(error);
        if (text.isEmpty()) // not signed in: there is no account to register with
            text = L::t(u"לא מחוברים: אי אפשר לרשום את המכשיר."_s,
                        u"Not signed in: this device cannot be registered."_s,
                        u"Вход не выполнен: устройство нельзя зарегистрировать."_s);
        if (self)
            self->setFailure(text);
        qCWarning(lcPush) << "push token not published:" << text;
        co_return false;
    }
    AppData::setSetting(QString::fromLatin1(marker), true);
    if (self)
        self->setFailure({});
    co_return true;
}

void PushCenter::route(const QVariantMap &userInfo)
{
    const std::optional<PushRoute> found = PushRoute::from(userInfo);
    if (!found) {
        qCWarning(lcPush) << "a notification without a destination:" << userInfo.keys();
        return;
    }
    open(*found);
}

void PushCenter::open(const PushRoute &route)
{
    m_pending.hold(route);
    emit routed(route);
}

void PushCenter::setFailure(const QString &failure)
{
    if (failure == m_failure)
        return;
    m_failure = failure;
    emit failureChanged();
}
