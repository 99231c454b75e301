#pragma once

#include <QString>

// The texts of the tasks screen, in the current language.
namespace TaskText {

QString heading();
QString empty();
QString newTask();
QString add();
QString markDone();
QString reopen();
// "Project 2", or the project's name when known.
QString project(const QString &name);
// "3 open · 1 done": the summary above the list.
QString counts(int open, int done);
// Why a new task was not made: it has no title.
QString untitled();

} // namespace TaskText
