#include "tasktexts.h"

#include "text/tasktext.h"

QString TaskTexts::heading() const
{
    return TaskText::heading();
}
QString TaskTexts::empty() const
{
    return TaskText::empty();
}
QString TaskTexts::newTask() const
{
    return TaskText::newTask();
}
QString TaskTexts::add() const
{
    return TaskText::add();
}
QString TaskTexts::markDone() const
{
    return TaskText::markDone();
}
QString TaskTexts::reopen() const
{
    return TaskText::reopen();
}
QString TaskTexts::project(const QString &name) const
{
    return TaskText::project(name);
}
QString TaskTexts::counts(int open, int done) const
{
    return TaskText::counts(open, done);
}
QString TaskTexts::untitled() const
{
    return TaskText::untitled();
}
