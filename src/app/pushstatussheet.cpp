#include "pushstatussheet.h"

#include "pushendpoints.h"
#include "net/api.h"
#include "net/failuretext.h"
#include "pushcenter.h"
#include "text/l.h"

#include <QJsonArray>
#include <QPointer>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

bool isReadinessCode(const QString &code)
{
    return code == u"apns_key_missing" || code == u"apns_key_id_missing" ||
           code == u"apns_team_missing";
}

QString authorizationName(PushCenter::Authorization authorization)
{
    switch (authorization) {
    case PushCenter::Authorization::Authorized:
        return u"authorized"_s;
    case PushCenter::Authorization::Denied:
        return u"denied"_s;
    case PushCenter::Authorization::Unavailable:
        return u"unavailable"_s;
    case PushCenter::Authorization::NotDetermined:
        break;
    }
    return u"not_determined"_s;
}

} // namespace

PushStatusSheet::PushStatusSheet(Api &api, PushCenter *center, QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_center(center)
{}

QString PushStatusSheet::permissionText() const
{
    switch (m_center ? m_center->authorization() : PushCenter::Authorization::Unavailable) {
    case PushCenter::Authorization::Authorized:
        return L::t(u"ההתראות מותרות במכשיר הזה."_s, u"Notifications are allowed on this device."_s,
                    u"Уведомления на этом устройстве разрешены."_s);
    case PushCenter::Authorization::Denied:
        return L::t(u"ההתראות כבויות בהגדרות המערכת."_s,
                    u"Notifications are turned off in the system settings."_s,
                    u"Уведомления отключены в настройках системы."_s);
    case PushCenter::Authorization::NotDetermined:
        return L::t(u"עדיין לא התבקשה הרשאה להתראות."_s,
                    u"Permission for notifications has not been asked for yet."_s,
                    u"Разрешение на уведомления ещё не запрашивалось."_s);
    case PushCenter::Authorization::Unavailable:
        break;
    }
    return L::t(u"אין כאן שירות התראות של שולחן העבודה."_s,
                u"No desktop notification service is running here."_s,
                u"Здесь не работает служба уведомлений рабочего стола."_s);
}

bool PushStatusSheet::deviceRegistered() const
{
    const QString token = m_center ? m_center->token() : QString();
    if (m_loaded && !token.isEmpty())
        return m_status.lists(token);
    return PushCenter::registered() && !token.isEmpty();
}

QString PushStatusSheet::deviceText() const
{
    if (deviceRegistered())
        return L::t(u"המכשיר הזה רשום לקבלת התראות."_s,
                    u"This device is registered for notifications."_s,
                    u"Это устройство зарегистрировано для уведомлений."_s);
    QString text = L::t(u"המכשיר הזה לא רשום להתראות מהשרת."_s,
                        u"This device is not registered for server notifications."_s,
                        u"Это устройство не зарегистрировано для уведомлений с сервера."_s);
    if (m_loaded)
        text += u' ' + L::t(u"מכשירים רשומים בחשבון: %1."_s,
                            u"Devices registered for the account: %1."_s,
                            u"Устройств в аккаунте: %1."_s)
                           .arg(m_status.devices.size());
    if (m_center && !m_center->failure().isEmpty())
        text += u' ' + m_center->failure();
    return text;
}

QString PushStatusSheet::serverText() const
{
    if (!m_loaded)
        return m_failure;
    if (m_status.ready)
        return L::t(u"השרת מוכן לשלוח התראות."_s, u"The server is ready to send notifications."_s,
                    u"Сервер готов отправлять уведомления."_s);
    return L::t(u"השרת לא יכול לשלוח התראות."_s, u"The server cannot send notifications."_s,
                u"Сервер не может отправлять уведомления."_s);
}

QStringList PushStatusSheet::problems() const
{
    QStringList lines;
    for (const QString &code : m_status.errors)
        lines << PushStatus::explain(code);
    return lines;
}

QString PushStatusSheet::testText() const
{
    switch (m_test) {
    case Test::None:
        return {};
    case Test::Sent:
        return L::t(u"התראת בדיקה נשלחה."_s, u"A test notification was sent."_s,
                    u"Тестовое уведомление отправлено."_s);
    case Test::NoDevice:
        return L::t(u"אין מכשיר רשום בחשבון הזה."_s, u"No device is registered for this account."_s,
                    u"Для этого аккаунта не зарегистрировано ни одного устройства."_s);
    case Test::NotSent:
        break;
    }
    const QString text =
        L::t(u"התראת הבדיקה לא יצאה."_s, u"The test notification did not go out."_s,
             u"Тестовое уведомление не отправлено."_s);
    return m_testReason.isEmpty() ? text : text + u' ' + m_testReason;
}

PushStatusSheet::Test PushStatusSheet::testOf(const QJsonObject &reply)
{
    return reply.value(u"sent"_s).toInt() > 0 ? Test::Sent : Test::NoDevice;
}

PushStatusSheet::Test PushStatusSheet::testOf(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const Api::Failed &failed) {
        return failed.code == u"no_device" ? Test::NoDevice : Test::NotSent;
    } catch (...) {
    }
    return Test::NotSent;
}

QCoro::Task<> PushStatusSheet::load()
{
    QPointer<PushStatusSheet> self(this);
    m_loading = true;
    emit changed();
    std::optional<QJsonValue> reply;
    std::exception_ptr error;
    try {
        reply = co_await m_api.raw(PushEndpoints::status(), "GET", 20s);
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;
    m_loading = false;
    m_error = error;
    if (error) {
        m_failure = FailureText::of(error);
        if (m_failure.isEmpty())
            m_failure = L::t(u"לא מחוברים."_s, u"Not signed in."_s, u"Вход не выполнен."_s);
    } else {
        m_failure.clear();
        m_status = PushStatus::fromJson(reply ? reply->toObject() : QJsonObject());
        m_loaded = true;
    }
    emit changed();
}

QCoro::Task<> PushStatusSheet::sendTest()
{
    QPointer<PushStatusSheet> self(this);
    m_loading = true;
    emit changed();
    QJsonObject reply;
    std::exception_ptr error;
    try {
        reply = co_await m_api.post(PushEndpoints::test(), QJsonObject());
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;
    m_loading = false;
    m_test = error ? testOf(error) : testOf(reply);
    m_testReason.clear();
    if (m_test == Test::NotSent) {
        try {
            std::rethrow_exception(error);
        } catch (const Api::Failed &failed) {
            m_testReason = isReadinessCode(failed.code) ? PushStatus::explain(failed.code)
                                                        : FailureText::of(error);
        } catch (...) {
            m_testReason = FailureText::of(error);
        }
    }
    emit changed();
}

QJsonObject PushStatusSheet::toJson() const
{
    QJsonArray devices;
    for (const PushStatus::Device &device : m_status.devices)
        devices.append(QJsonObject{{u"device_name"_s, device.name},
                                   {u"env"_s, device.env},
                                   {u"app_build"_s, device.build},
                                   {u"token_tail"_s, device.tokenTail}});
    const auto authorization =
        m_center ? m_center->authorization() : PushCenter::Authorization::Unavailable;
    return {
        {u"permission"_s, authorizationName(authorization)},
        {u"registered"_s, deviceRegistered()},
        {u"failure"_s, m_center ? m_center->failure() : QString()},
        {u"server_ready"_s, m_status.ready},
        {u"errors"_s, QJsonArray::fromStringList(m_status.errors)},
        {u"devices"_s, devices},
    };
}
