#include "pushstatus.h"

#include "text/l.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

PushStatus PushStatus::fromJson(const QJsonObject &json)
{
    PushStatus status;
    status.ready = json.value(u"ready"_s).toBool();
    for (const QJsonValue &code : json.value(u"errors"_s).toArray()) {
        if (code.isString() && !code.toString().isEmpty())
            status.errors << code.toString();
    }
    for (const QJsonValue &value : json.value(u"devices"_s).toArray()) {
        const QJsonObject device = value.toObject();
        status.devices << Device{
            device.value(u"device_name"_s).toString(), device.value(u"env"_s).toString(),
            device.value(u"app_build"_s).toString(), device.value(u"token_tail"_s).toString()};
    }
    // A server that names a problem cannot send, whatever else it says.
    if (!status.errors.isEmpty())
        status.ready = false;
    return status;
}

bool PushStatus::lists(const QString &token) const
{
    if (token.isEmpty())
        return false;
    for (const Device &device : devices) {
        if (!device.tokenTail.isEmpty() && token.endsWith(device.tokenTail))
            return true;
    }
    return false;
}

QString PushStatus::explain(const QString &code)
{
    if (code == u"apns_key_missing")
        return L::t(
            u"לשרת אין מפתח שליחת התראות של Apple (קובץ ‎.p8‎)."_s,
            u"The server has no Apple push key (the .p8 file) installed."_s,
            u"На сервере не установлен ключ push-уведомлений Apple (файл .p8)."_s);
    if (code == u"apns_key_id_missing")
        return L::t(
            u"לשרת יש מפתח התראות של Apple, אבל לא הוגדר מזהה המפתח (Key ID)."_s,
            u"The server has an Apple push key but no key ID set for it."_s,
            u"На сервере есть ключ push-уведомлений Apple, но не задан его идентификатор (Key ID)."_s);
    if (code == u"apns_team_missing")
        return L::t(u"בשרת לא הוגדר מזהה צוות המפתחים של Apple (Team ID)."_s,
                    u"The server has no Apple developer team ID set."_s,
                    u"На сервере не задан идентификатор команды разработчика Apple (Team ID)."_s);
    return L::t(u"השרת מדווח על תקלה: %1"_s, u"The server reports a problem: %1"_s,
                u"Сервер сообщает о проблеме: %1"_s)
        .arg(code);
}
