#include "vaulttext.h"

#include "text/l.h"

using namespace Qt::StringLiterals;

namespace VaultText {

QString locked()
{
    return L::t(u"הכספת נעולה"_s, u"The vault is locked"_s, u"Хранилище заперто"_s);
}

QString lockedLine()
{
    return L::t(u"אשרו שזה אתם כדי לראות את הסודות שלכם."_s,
                u"Confirm it is you to see your secrets."_s,
                u"Подтвердите, что это вы, чтобы увидеть свои секреты."_s);
}

QString unlock()
{
    return L::t(u"פתיחה"_s, u"Unlock"_s, u"Открыть"_s);
}

QString reason()
{
    return L::t(u"פתיחת הכספת של Halvenmark"_s, u"Unlock your Halvenmark vault"_s,
                u"Открыть хранилище Halvenmark"_s);
}

QString all()
{
    return L::t(u"הכול"_s, u"All"_s, u"Все"_s);
}

QString search()
{
    return L::t(u"חיפוש בכספת"_s, u"Search the vault"_s, u"Поиск в хранилище"_s);
}

QString empty()
{
    return L::t(u"הכספת ריקה"_s, u"The vault is empty"_s, u"Хранилище пусто"_s);
}

QString emptyLine()
{
    return L::t(
        u"שמרו כאן מפתחות, סיסמאות, כרטיסים וחתימות. הסוכן ישתמש בהם כשתרשו לו."_s,
        u"Keep keys, passwords, cards and signatures here. The agent uses them when you allow it."_s,
        u"Храните здесь ключи, пароли, карты и подписи. Агент использует их, когда вы разрешите."_s);
}

QString noMatch()
{
    return L::t(u"אין פריטים שמתאימים לחיפוש"_s, u"Nothing matches the search"_s,
                u"Ничего не найдено"_s);
}

QString copied()
{
    return L::t(u"הועתק, יימחק מהלוח בעוד דקה"_s,
                u"Copied, cleared from the clipboard in a minute"_s,
                u"Скопировано, через минуту исчезнет из буфера обмена"_s);
}

QString encrypted()
{
    return L::t(u"מוצפן ב־AES-256 בשרת · רק אתם"_s, u"AES-256 encrypted on the server · only you"_s,
                u"Зашифровано AES-256 на сервере · только вы"_s);
}

QString primary()
{
    return L::t(u"ראשי"_s, u"Primary"_s, u"Основной"_s);
}

QString makePrimary()
{
    return L::t(u"הפוך לראשי"_s, u"Make primary"_s, u"Сделать основным"_s);
}

QString primaryLine()
{
    return L::t(u"הסוכן משתמש בפריט הראשי מכל סוג כברירת מחדל."_s,
                u"The agent uses the primary item of each kind by default."_s,
                u"Агент по умолчанию использует основной элемент каждого вида."_s);
}

QString signHere()
{
    return L::t(u"חתמו כאן"_s, u"Sign here"_s, u"Подпишите здесь"_s);
}

QString redraw()
{
    return L::t(u"ציור מחדש"_s, u"Redraw"_s, u"Нарисовать заново"_s);
}

QString clear()
{
    return L::t(u"ניקוי"_s, u"Clear"_s, u"Очистить"_s);
}

QString kind(const QString &raw)
{
    if (raw == u"api_key")
        return L::t(u"מפתח API"_s, u"API key"_s, u"Ключ API"_s);
    if (raw == u"passkey")
        return L::t(u"מפתח גישה"_s, u"Passkey"_s, u"Ключ доступа"_s);
    if (raw == u"login")
        return L::t(u"כניסה"_s, u"Login"_s, u"Логин"_s);
    if (raw == u"note")
        return L::t(u"פתק"_s, u"Note"_s, u"Заметка"_s);
    if (raw == u"card")
        return L::t(u"כרטיס"_s, u"Card"_s, u"Карта"_s);
    if (raw == u"signature")
        return L::t(u"חתימה"_s, u"Signature"_s, u"Подпись"_s);
    return raw;
}

} // namespace VaultText
