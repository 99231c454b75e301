#include "word.h"

#include "l.h"

using namespace Qt::StringLiterals;

namespace Word {

const QHash<QString, Text> &table()
{
    static const QHash<QString, Text> words = {
        // Run and task states.
        {u"running"_s, {u"פועל"_s, u"выполняется"_s}},
        {u"starting"_s, {u"מתחיל"_s, u"запускается"_s}},
        {u"queued"_s, {u"בתור"_s, u"в очереди"_s}},
        {u"pending"_s, {u"ממתין"_s, u"ожидает"_s}},
        {u"waiting"_s, {u"בהמתנה"_s, u"ждёт"_s}},
        {u"done"_s, {u"בוצע"_s, u"готово"_s}},
        {u"completed"_s, {u"הושלם"_s, u"завершено"_s}},
        {u"failed"_s, {u"נכשל"_s, u"сбой"_s}},
        {u"error"_s, {u"שגיאה"_s, u"ошибка"_s}},
        {u"cancelled"_s, {u"בוטל"_s, u"отменено"_s}},
        {u"cancelling"_s, {u"מתבטל…"_s, u"отменяется…"_s}},
        {u"missed"_s, {u"הוחמץ"_s, u"пропущено"_s}},
        {u"paused"_s, {u"מושהה"_s, u"приостановлено"_s}},
        {u"archived"_s, {u"בארכיון"_s, u"в архиве"_s}},
        // Kinds of work sent to a machine.
        {u"exec"_s, {u"הרצת פקודה"_s, u"выполнение команды"_s}},
        {u"work"_s, {u"עבודה"_s, u"работа"_s}},
        {u"push"_s, {u"דחיפה"_s, u"отправка"_s}},
        {u"pull"_s, {u"משיכה"_s, u"получение"_s}},
        {u"action"_s, {u"פעולה"_s, u"действие"_s}},
        {u"probe"_s, {u"בדיקה"_s, u"проверка"_s}},
        {u"pair"_s, {u"צימוד"_s, u"сопряжение"_s}},
        {u"enroll"_s, {u"רישום"_s, u"регистрация"_s}},
        {u"ac"_s, {u"בדיקת קבלה"_s, u"приёмка"_s}},
        // Review outcomes and health.
        {u"accepted"_s, {u"התקבל"_s, u"принято"_s}},
        {u"rejected"_s, {u"נדחה"_s, u"отклонено"_s}},
        {u"blocked"_s, {u"חסום"_s, u"заблокировано"_s}},
        {u"attention"_s, {u"דורש תשומת לב"_s, u"требует внимания"_s}},
        {u"expired"_s, {u"פג תוקף"_s, u"истёк срок"_s}},
        {u"critical"_s, {u"קריטי"_s, u"критично"_s}},
        {u"degraded"_s, {u"ירוד"_s, u"работает с перебоями"_s}},
        {u"warn"_s, {u"אזהרה"_s, u"предупреждение"_s}},
        {u"ok"_s, {u"תקין"_s, u"в норме"_s}},
        {u"healthy"_s, {u"במצב טוב"_s, u"исправно"_s}},
        {u"strong"_s, {u"חזק"_s, u"сильный"_s}},
        {u"stable"_s, {u"יציב"_s, u"стабильно"_s}},
        {u"active"_s, {u"פעיל"_s, u"активно"_s}},
        {u"connected"_s, {u"מחובר"_s, u"подключено"_s}},
        {u"initiated"_s, {u"הוחל"_s, u"начато"_s}},
        {u"unknown"_s, {u"לא ידוע"_s, u"неизвестно"_s}},
        {u"unavailable"_s, {u"לא זמין"_s, u"недоступно"_s}},
        {u"disabled"_s, {u"מושבת"_s, u"отключено"_s}},
        {u"idle"_s, {u"במצב סרק"_s, u"простаивает"_s}},
        // Plans and goals.
        {u"draft"_s, {u"טיוטה"_s, u"черновик"_s}},
        {u"planned"_s, {u"מתוכנן"_s, u"запланировано"_s}},
        {u"doing"_s, {u"בביצוע"_s, u"в работе"_s}},
        {u"on_track"_s, {u"לפי התוכנית"_s, u"по плану"_s}},
        {u"at_risk"_s, {u"בסיכון"_s, u"под угрозой"_s}},
        {u"off_track"_s, {u"חורג מהתוכנית"_s, u"отстаёт от плана"_s}},
        {u"todo"_s, {u"לביצוע"_s, u"к выполнению"_s}},
        {u"stalled"_s, {u"תקוע"_s, u"застопорилось"_s}},
        {u"collecting"_s, {u"אוסף נתונים"_s, u"сбор данных"_s}},
        {u"partial"_s, {u"חלקי"_s, u"частично"_s}},
        {u"published"_s, {u"פורסם"_s, u"опубликовано"_s}},
        {u"verified"_s, {u"אומת"_s, u"проверено"_s}},
        // Levels and trends.
        {u"high"_s, {u"גבוה"_s, u"высокий"_s}},
        {u"medium"_s, {u"בינוני"_s, u"средний"_s}},
        {u"low"_s, {u"נמוך"_s, u"низкий"_s}},
        {u"positive"_s, {u"חיובי"_s, u"положительный"_s}},
        {u"up"_s, {u"עלייה"_s, u"рост"_s}},
        {u"down"_s, {u"ירידה"_s, u"снижение"_s}},
        {u"flat"_s, {u"ללא שינוי"_s, u"без изменений"_s}},
        // Roles.
        {u"owner"_s, {u"בעלים"_s, u"владелец"_s}},
        {u"admin"_s, {u"מנהל"_s, u"администратор"_s}},
        {u"user"_s, {u"משתמש"_s, u"пользователь"_s}},
        {u"assistant"_s, {u"עוזר"_s, u"ассистент"_s}},
        // Automation modes and goal areas.
        {u"parallel"_s, {u"מקבילי"_s, u"параллельно"_s}},
        {u"scheduled"_s, {u"מתוזמן"_s, u"по расписанию"_s}},
        {u"web"_s, {u"רשת"_s, u"интернет"_s}},
        {u"leads"_s, {u"לקוחות פוטנציאליים"_s, u"потенциальные клиенты"_s}},
        {u"revenue"_s, {u"הכנסות"_s, u"выручка"_s}},
        {u"retention"_s, {u"שימור לקוחות"_s, u"удержание клиентов"_s}},
        // Memory categories.
        {u"artifact"_s, {u"תוצר"_s, u"артефакт"_s}},
        {u"concept"_s, {u"מושג"_s, u"понятие"_s}},
        {u"data"_s, {u"נתונים"_s, u"данные"_s}},
        {u"method"_s, {u"שיטה"_s, u"метод"_s}},
        {u"content"_s, {u"תוכן"_s, u"содержимое"_s}},
        {u"organization"_s, {u"ארגון"_s, u"организация"_s}},
        {u"person"_s, {u"אדם"_s, u"человек"_s}},
        {u"event"_s, {u"אירוע"_s, u"событие"_s}},
        {u"location"_s, {u"מיקום"_s, u"место"_s}},
        {u"category"_s, {u"קטגוריה"_s, u"категория"_s}},
        {u"naturalobject"_s, {u"עצם טבעי"_s, u"природный объект"_s}},
        // Skill and plugin categories.
        {u"general"_s, {u"כללי"_s, u"общее"_s}},
        {u"development"_s, {u"פיתוח"_s, u"разработка"_s}},
        {u"testing"_s, {u"בדיקות"_s, u"тестирование"_s}},
        {u"deployment"_s, {u"פריסה"_s, u"развёртывание"_s}},
        {u"messaging"_s, {u"הודעות"_s, u"обмен сообщениями"_s}},
        {u"visual"_s, {u"חזותי"_s, u"визуальное"_s}},
        {u"api"_s, {u"ממשק תכנות"_s, u"программный интерфейс"_s}},
        {u"deterministic"_s, {u"דטרמיניסטי"_s, u"детерминированный"_s}},
        {u"local"_s, {u"מקומי"_s, u"локально"_s}},
        {u"prompt"_s, {u"פרומפט"_s, u"промпт"_s}},
        {u"parallel_task"_s, {u"משימה מקבילית"_s, u"параллельная задача"_s}},
    };
    return words;
}

QString of(const QString &raw)
{
    const QString lang = L::current();
    if (lang == u"en")
        return raw;
    const auto hit = table().constFind(raw.toLower());
    if (hit == table().cend())
        return raw;
    return lang == u"he" ? hit->he : hit->ru;
}

} // namespace Word
