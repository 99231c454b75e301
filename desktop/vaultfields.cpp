#include "vaultfields.h"

#include "features/vault/vaulttext.h"
#include "text/l.h"

#include <QVariantMap>

using namespace Qt::StringLiterals;

namespace VaultFields {

QList<Field> forKind(const QString &kind)
{
    const Field title{u"title"_s, Input::Line};
    if (kind == u"api_key")
        return {title, {u"service"_s, Input::Line}, {u"key"_s, Input::Secret}};
    if (kind == u"passkey")
        return {title,
                {u"site"_s, Input::Line},
                {u"username"_s, Input::Line},
                {u"passkey"_s, Input::Secret}};
    if (kind == u"login")
        return {title,
                {u"username"_s, Input::Line},
                {u"url"_s, Input::Line},
                {u"password"_s, Input::Secret}};
    if (kind == u"note")
        return {title, {u"note"_s, Input::Text}};
    if (kind == u"card")
        // The number goes first: it is what reveal gives back, and the server shows its last 4.
        return {title,
                {u"number"_s, Input::Secret},
                {u"cardholder"_s, Input::Line},
                {u"expiry"_s, Input::Secret},
                {u"cvc"_s, Input::Secret}};
    if (kind == u"signature")
        return {title, {u"signature"_s, Input::Signature}};
    return {title, {u"secret"_s, Input::Secret}};
}

QVariantList forKindAsMaps(const QString &kind)
{
    QVariantList out;
    for (const Field &field : forKind(kind)) {
        QString input;
        switch (field.input) {
        case Input::Line:
            input = u"line"_s;
            break;
        case Input::Secret:
            input = u"secret"_s;
            break;
        case Input::Text:
            input = u"text"_s;
            break;
        case Input::Signature:
            input = u"signature"_s;
            break;
        }
        out << QVariantMap{
            {u"key"_s, field.key}, {u"input"_s, input}, {u"label"_s, label(field.key)}};
    }
    return out;
}

QString label(const QString &key)
{
    if (key == u"title")
        return L::t(u"שם"_s, u"Title"_s, u"Название"_s);
    if (key == u"service")
        return L::t(u"שירות"_s, u"Service"_s, u"Сервис"_s);
    if (key == u"key")
        return L::t(u"מפתח"_s, u"Key"_s, u"Ключ"_s);
    if (key == u"site")
        return L::t(u"אתר"_s, u"Site"_s, u"Сайт"_s);
    if (key == u"username")
        return L::t(u"שם משתמש"_s, u"User name"_s, u"Имя пользователя"_s);
    if (key == u"passkey")
        return L::t(u"מפתח גישה"_s, u"Passkey"_s, u"Ключ доступа"_s);
    if (key == u"url")
        return L::t(u"כתובת"_s, u"Address"_s, u"Адрес"_s);
    if (key == u"password")
        return L::t(u"סיסמה"_s, u"Password"_s, u"Пароль"_s);
    if (key == u"note")
        return L::t(u"פתק"_s, u"Note"_s, u"Заметка"_s);
    if (key == u"number")
        return L::t(u"מספר כרטיס"_s, u"Card number"_s, u"Номер карты"_s);
    if (key == u"cardholder")
        return L::t(u"שם בעל הכרטיס"_s, u"Cardholder"_s, u"Владелец карты"_s);
    if (key == u"expiry")
        return L::t(u"תוקף"_s, u"Expires"_s, u"Срок действия"_s);
    if (key == u"cvc")
        return L::t(u"קוד אבטחה"_s, u"Security code"_s, u"Код безопасности"_s);
    if (key == u"signature")
        return VaultText::kind(u"signature"_s);
    return L::t(u"סוד"_s, u"Secret"_s, u"Секрет"_s);
}

bool matches(const VaultItem &item, const QString &query, const QString &kind)
{
    if (!kind.isEmpty() && item.kind != kind)
        return false;
    const QString haystack =
        QStringList{item.title,   item.username, item.site,       item.url,
                    item.service, item.client,   item.cardholder, VaultText::kind(item.kind)}
            .join(u'\n');
    const QStringList words = query.split(u' ', Qt::SkipEmptyParts);
    return std::all_of(words.cbegin(), words.cend(), [&](const QString &word) {
        return haystack.contains(word, Qt::CaseInsensitive);
    });
}

} // namespace VaultFields
