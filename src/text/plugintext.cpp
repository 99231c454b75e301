#include "plugintext.h"

#include "l.h"

#include <cmath>

namespace PluginText {

QString alive()
{
    return L::t(QStringLiteral("פרומפט עיצוב חי"), QStringLiteral("Alive design prompt"),
                QStringLiteral("Живой дизайн-промпт"));
}

QString tokens(std::optional<qint64> n)
{
    if (!n)
        return QStringLiteral("0");
    const qint64 v = *n;
    // QString::asprintf formats numbers in the C locale, whatever the process locale is.
    if (v >= 1'000'000'000)
        return QString::asprintf("%.2fB", double(v) / 1e9);
    if (v >= 1'000'000)
        return QString::asprintf("%.1fM", double(v) / 1e6);
    if (v >= 1'000)
        return QString::asprintf("%.0fK", double(v) / 1000);
    return QString::number(v);
}

QString usd(std::optional<double> dollars)
{
    // A non-finite amount is no amount: "$nan" helps nobody.
    if (!dollars || !std::isfinite(*dollars))
        return QStringLiteral("—");
    const double x = *dollars;
    const char *format = x >= 100 ? "$%.0f" : x >= 1 ? "$%.2f" : x >= 0.01 ? "$%.3f" : "$%.5f";
    return QString::asprintf(format, x);
}

QString seconds(std::optional<double> x)
{
    if (!x || !std::isfinite(*x))
        return QStringLiteral("–");
    const QString n = QString::number(std::llround(*x));
    return n + L::t(QStringLiteral(" שנ׳"), QStringLiteral("s"), QStringLiteral(" с"));
}

} // namespace PluginText
