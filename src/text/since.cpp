#include "since.h"

#include "l.h"

#include <QLocale>

namespace {

constexpr qint64 minute = 60;
constexpr qint64 hour = 3600;
constexpr qint64 day = 86400;

QLocale localeOf(const QString &lang)
{
    if (lang == u"he")
        return QLocale(QLocale::Hebrew, QLocale::Israel);
    if (lang == u"ru")
        return QLocale(QLocale::Russian, QLocale::Russia);
    return QLocale(QLocale::English, QLocale::UnitedKingdom);
}

// Seconds from moment to now, never negative.
qint64 ageOf(const QDateTime &moment, const QDateTime &now)
{
    return std::max<qint64>(0, moment.secsTo(now));
}

} // namespace

namespace Since {

QString shortAge(qint64 seconds)
{
    const qint64 s = std::max<qint64>(0, seconds);
    // Hebrew says the first unit of each range as a bare word ("דקה", not "1 דקות").
    auto pick = [](qint64 n, const char *en, const char *ru, const QString &heOne,
                   const char *heMany) {
        const QString num = QString::number(n);
        return L::t(n == 1 ? heOne : num + QString::fromUtf8(heMany), num + QLatin1String(en),
                    num + QString::fromUtf8(ru));
    };
    if (s < minute)
        return pick(s, "s", " с", QStringLiteral("שנייה"), " שניות");
    if (s < hour)
        return pick(s / minute, "m", " м", QStringLiteral("דקה"), " דקות");
    if (s < day)
        return pick(s / hour, "h", " ч", QStringLiteral("שעה"), " שעות");
    return pick(s / day, "d", " дн", QStringLiteral("יום"), " ימים");
}

QString when(const QDateTime &moment, const QDateTime &now)
{
    if (!moment.isValid())
        return QStringLiteral("—");
    const QDateTime local = moment.toLocalTime();
    const QDate date = local.date();
    const QDate today = now.toLocalTime().date();
    const QLocale locale = localeOf(L::current());
    const QString time = locale.toString(local.time(), u"HH:mm");
    if (date == today)
        return time;
    if (date == today.addDays(-1))
        return L::t(QStringLiteral("אתמול "), QStringLiteral("Yesterday "),
                    QStringLiteral("Вчера "))
               + time;
    if (date == today.addDays(1))
        return L::t(QStringLiteral("מחר "), QStringLiteral("Tomorrow "), QStringLiteral("Завтра "))
               + time;
    if (date.year() == today.year())
        return locale.toString(date, u"d MMMM") + QStringLiteral(", ") + time;
    return locale.toString(date, u"d MMMM yyyy");
}

QString seen(const QDateTime &moment, const QDateTime &now)
{
    if (!moment.isValid())
        return L::t(QStringLiteral("טרם נראה"), QStringLiteral("Never seen"),
                    QStringLiteral("Ещё не был в сети"));
    const qint64 age = ageOf(moment, now);
    if (age < minute)
        return L::t(QStringLiteral("נראה לאחרונה הרגע"), QStringLiteral("Last seen just now"),
                    QStringLiteral("В сети только что"));
    const QString ago = shortAge(age);
    return L::t(QStringLiteral("נראה לאחרונה לפני ") + ago,
                QStringLiteral("Last seen ") + ago + QStringLiteral(" ago"),
                QStringLiteral("Последний раз в сети ") + ago + QStringLiteral(" назад"));
}

QString read(const QDateTime &moment, const QDateTime &now)
{
    if (!moment.isValid())
        return QStringLiteral("—");
    const qint64 age = ageOf(moment, now);
    if (age < minute)
        return L::t(QStringLiteral("הרגע"), QStringLiteral("just now"),
                    QStringLiteral("только что"));
    const QString ago = shortAge(age);
    return L::t(QStringLiteral("לפני ") + ago, ago + QStringLiteral(" ago"),
                ago + QStringLiteral(" назад"));
}

QString lasted(qint64 seconds)
{
    const qint64 s = std::max<qint64>(0, seconds);
    const qint64 h = s / hour;
    const qint64 m = s % hour / minute;
    const qint64 sec = s % minute;
    // Two units at most: seconds stop mattering once a duration runs into hours.
    auto part = [](qint64 n, const char *en, const char *ru, const char *he) {
        const QString num = QString::number(n);
        return L::t(num + QString::fromUtf8(he), num + QLatin1String(en),
                    num + QString::fromUtf8(ru));
    };
    const QString hours = part(h, "h", " ч", " שע׳");
    const QString minutes = part(m, "m", " мин", " דק׳");
    const QString secs = part(sec, "s", " с", " שנ׳");
    if (h > 0)
        return m > 0 ? hours + u' ' + minutes : hours;
    if (m > 0)
        return sec > 0 ? minutes + u' ' + secs : minutes;
    return secs;
}

} // namespace Since
