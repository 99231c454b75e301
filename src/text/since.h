#pragma once

#include <QDateTime>
#include <QString>

// Ages, moments and durations in the current language. Callers pass "now" so that
// the texts do not depend on the wall clock.
namespace Since {

// The compact age used in lists ("5m", "5 м", "5 דקות"). A negative age (clock skew)
// counts as 0. Named shortAge because `short` is a C++ keyword.
QString shortAge(qint64 seconds);

// A moment: the time of day today, "Yesterday"/"Tomorrow" and the time, the day and month
// this year, the full date otherwise. Calendar days are the local time zone's.
QString when(const QDateTime &moment, const QDateTime &now);

// When something was last seen ("Last seen 5m ago"); an invalid moment means never.
QString seen(const QDateTime &moment, const QDateTime &now);

// How old a reading is ("5m ago", "just now"); an invalid moment gives "—".
QString read(const QDateTime &moment, const QDateTime &now);

// How long something lasted ("42s", "3m 5s", "2h 5m").
QString lasted(qint64 seconds);

} // namespace Since
