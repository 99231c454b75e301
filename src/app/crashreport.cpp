#include "crashreport.h"

#include "net/wire.h"

#include <QJsonDocument>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace CrashReport {

namespace {

constexpr double hangSeconds = 3.0;

// The vitals and build of the run being reported, from its run.json where it has one.
QJsonObject base(const QJsonObject &run)
{
    QJsonObject report;
    for (const QString &key : {u"surface"_s, u"foreground"_s, u"worst_stall_s"_s, u"uptime_s"_s,
                               u"build"_s, u"system"_s}) {
        if (run.contains(key))
            report.insert(key, run.value(key));
    }
    if (!report.contains(u"build"_s))
        report.insert(u"build"_s, Wire::userAgent());
    return report;
}

} // namespace

std::optional<QJsonObject> previous(const std::optional<QByteArray> &crashText,
                                    const std::optional<QByteArray> &runJson)
{
    const QJsonObject run = runJson ? QJsonDocument::fromJson(*runJson).object() : QJsonObject();
    QJsonObject report = base(run);
    if (crashText) {
        const QString trace = QString::fromUtf8(*crashText);
        report.insert(u"kind"_s, u"crash"_s);
        report.insert(u"reason"_s, trace.section(u'\n', 0, 0).trimmed());
        report.insert(u"trace"_s, trace);
        return report;
    }
    if (run.isEmpty() || !run.value(u"foreground"_s).toBool() || run.value(u"ended"_s).toBool())
        return std::nullopt;
    const double stall = run.value(u"worst_stall_s"_s).toDouble();
    if (stall >= hangSeconds) {
        report.insert(u"kind"_s, u"hang"_s);
        report.insert(u"reason"_s,
                      u"main thread stuck "_s + QString::number(stall) + u"s, then killed"_s);
    } else {
        report.insert(u"kind"_s, u"killed_in_foreground"_s);
        report.insert(u"reason"_s, u"no signal, killed while in front"_s);
    }
    report.insert(u"trace"_s, u""_s);
    return report;
}

} // namespace CrashReport
