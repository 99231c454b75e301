#include "tasktext.h"

#include "l.h"

using namespace Qt::StringLiterals;

namespace TaskText {

QString heading()
{
    return L::t(u"משימות"_s, u"Tasks"_s, u"Задачи"_s);
}

QString empty()
{
    return L::t(u"אין משימות עדיין"_s, u"No tasks yet"_s, u"Задач пока нет"_s);
}

QString newTask()
{
    return L::t(u"משימה חדשה…"_s, u"New task…"_s, u"Новая задача…"_s);
}

QString add()
{
    return L::t(u"הוספה"_s, u"Add"_s, u"Добавить"_s);
}

QString markDone()
{
    return L::t(u"סימון כבוצעה"_s, u"Mark done"_s, u"Отметить выполненной"_s);
}

QString reopen()
{
    return L::t(u"פתיחה מחדש"_s, u"Reopen"_s, u"Открыть снова"_s);
}

QString project(const QString &name)
{
    return L::t(u"פרויקט: %1"_s, u"Project: %1"_s, u"Проект: %1"_s).arg(name);
}

QString counts(int open, int done)
{
    return L::t(u"%1 פתוחות · %2 בוצעו"_s, u"%1 open · %2 done"_s, u"открыто: %1 · выполнено: %2"_s)
        .arg(open)
        .arg(done);
}

QString untitled()
{
    return L::t(u"למשימה צריך כותרת."_s, u"A task needs a title."_s,
                u"У задачи должно быть название."_s);
}

} // namespace TaskText
