#include "healthexportstore.h"

#include "healthactivity.h"
#include "text/l.h"

#include <QCoroThread>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>
#include <QSysInfo>
#include <QThread>
#include <QUuid>
#include <QXmlStreamReader>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView quantity = u"HKQuantityTypeIdentifier";

std::optional<HealthMetric> metricOf(QStringView type)
{
    if (type == u"HKQuantityTypeIdentifierStepCount")
        return HealthMetric::Steps;
    if (type == u"HKQuantityTypeIdentifierActiveEnergyBurned")
        return HealthMetric::ActiveEnergy;
    if (type == u"HKQuantityTypeIdentifierAppleExerciseTime")
        return HealthMetric::ExerciseTime;
    if (type == u"HKQuantityTypeIdentifierRestingHeartRate")
        return HealthMetric::RestingHeartRate;
    return std::nullopt;
}

std::optional<double> number(const QXmlStreamAttributes &attributes, const QString &name)
{
    bool ok = false;
    const double value = attributes.value(name).toDouble(&ok);
    return ok ? std::optional<double>(value) : std::nullopt;
}

// Energy in kilocalories ("Cal" is the kilocalorie of food labels).
double kilocalories(double value, QStringView unit)
{
    if (unit == u"kJ")
        return value / 4.184;
    if (unit == u"cal")
        return value / 1000.0;
    return value;
}

double metres(double value, QStringView unit)
{
    if (unit == u"km")
        return value * 1000.0;
    if (unit == u"mi")
        return value * 1609.344;
    if (unit == u"yd")
        return value * 0.9144;
    if (unit == u"ft")
        return value * 0.3048;
    return value;
}

double minutesToSeconds(double value, QStringView unit)
{
    if (unit == u"s")
        return value;
    if (unit == u"hr")
        return value * 3600.0;
    return value * 60.0;
}

// Exports carry no UUIDs: one is derived from what identifies the workout, so the same
// workout in a later export has the same one.
QString workoutId(const QXmlStreamAttributes &a)
{
    static const QUuid space(u"3f0c7a52-8d5e-4b7e-9b2a-6c1f2d9e4a10"_s);
    const QString identity = a.value(QLatin1StringView("workoutActivityType")).toString() + u'|' +
                             a.value(QLatin1StringView("sourceName")).toString() + u'|' +
                             a.value(QLatin1StringView("startDate")).toString() + u'|' +
                             a.value(QLatin1StringView("endDate")).toString();
    return QUuid::createUuidV5(space, identity).toString(QUuid::WithoutBraces).toUpper();
}

void addStatistic(HealthWorkoutSample &w, const QXmlStreamAttributes &a)
{
    const QStringView type = a.value(QLatin1StringView("type"));
    const QStringView unit = a.value(QLatin1StringView("unit"));
    const auto sum = number(a, u"sum"_s);
    if (type == u"HKQuantityTypeIdentifierActiveEnergyBurned" && sum)
        w.kcal = kilocalories(*sum, unit);
    else if (type == u"HKQuantityTypeIdentifierDistanceWalkingRunning" && sum)
        w.walkingRunning = metres(*sum, unit);
    else if (type == u"HKQuantityTypeIdentifierDistanceCycling" && sum)
        w.cycling = metres(*sum, unit);
    else if (type == u"HKQuantityTypeIdentifierDistanceSwimming" && sum)
        w.swimming = metres(*sum, unit);
    else if (type == u"HKQuantityTypeIdentifierHeartRate") {
        w.avgHr = number(a, u"average"_s);
        w.maxHr = number(a, u"maximum"_s);
    }
}

// The totals older exports keep on the workout itself.
void addTotals(HealthWorkoutSample &w, const QXmlStreamAttributes &a)
{
    if (const auto energy = number(a, u"totalEnergyBurned"_s))
        w.kcal = kilocalories(*energy, a.value(QLatin1StringView("totalEnergyBurnedUnit")));
    if (const auto distance = number(a, u"totalDistance"_s)) {
        const double m = metres(*distance, a.value(QLatin1StringView("totalDistanceUnit")));
        const QString key = HealthActivity::key(w.activityType);
        if (key == u"cycling")
            w.cycling = m;
        else if (key == u"swimming")
            w.swimming = m;
        else
            w.walkingRunning = m;
    }
}

HealthWorkoutSample workoutOf(const QXmlStreamAttributes &a)
{
    HealthWorkoutSample w;
    w.uuid = workoutId(a);
    w.activityType =
        HealthActivity::rawOf(a.value(QLatin1StringView("workoutActivityType")).toString());
    w.start = HealthExportStore::exportTime(a.value(QLatin1StringView("startDate")));
    w.end = HealthExportStore::exportTime(a.value(QLatin1StringView("endDate")));
    const auto duration = number(a, u"duration"_s);
    w.duration = duration ? minutesToSeconds(*duration, a.value(QLatin1StringView("durationUnit")))
                          : double(w.start.secsTo(w.end));
    w.source = a.value(QLatin1StringView("sourceName")).toString();
    addTotals(w, a);
    return w;
}

void addRecord(HealthExportStore::Contents &contents, const QXmlStreamAttributes &a)
{
    const QStringView type = a.value(QLatin1StringView("type"));
    if (!type.startsWith(quantity))
        return;
    const auto metric = metricOf(type);
    const auto value = number(a, u"value"_s);
    const QDateTime start = HealthExportStore::exportTime(a.value(QLatin1StringView("startDate")));
    if (!metric || !value || !start.isValid())
        return;
    double amount = *value;
    if (*metric == HealthMetric::ActiveEnergy)
        amount = kilocalories(amount, a.value(QLatin1StringView("unit")));
    auto &slot = contents.days[*metric][start.toLocalTime().date()]
                              [a.value(QLatin1StringView("sourceName")).toString()];
    slot.first += amount;
    slot.second += 1;
}

} // namespace

HealthExportStore::HealthExportStore(QString file)
    : m_file(std::move(file))
{}

QString HealthExportStore::deviceName() const
{
    return QSysInfo::machineHostName() + u" (export.xml)"_s;
}

QDateTime HealthExportStore::exportTime(QStringView text)
{
    // "yyyy-MM-dd HH:mm:ss ±hhmm"
    if (text.size() != 25 || text[19] != u' ' || (text[20] != u'+' && text[20] != u'-'))
        return {};
    QDateTime utc = QDateTime::fromString(text.first(19).toString(), u"yyyy-MM-dd HH:mm:ss"_s);
    bool hoursOk = false;
    bool minutesOk = false;
    const int hours = text.sliced(21, 2).toInt(&hoursOk);
    const int minutes = text.sliced(23, 2).toInt(&minutesOk);
    if (!utc.isValid() || !hoursOk || !minutesOk)
        return {};
    const int offset = (text[20] == u'-' ? -1 : 1) * (hours * 3600 + minutes * 60);
    utc.setTimeSpec(Qt::UTC);
    return utc.addSecs(-offset).toLocalTime();
}

HealthExportStore::Contents HealthExportStore::parse(QIODevice &device)
{
    Contents contents;
    QXmlStreamReader xml(&device);
    std::optional<HealthWorkoutSample> open;
    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::StartElement) {
            const QStringView name = xml.name();
            if (name == u"Record") {
                addRecord(contents, xml.attributes());
            } else if (name == u"Workout") {
                open = workoutOf(xml.attributes());
            } else if (name == u"WorkoutStatistics" && open) {
                addStatistic(*open, xml.attributes());
            }
        } else if (token == QXmlStreamReader::EndElement && xml.name() == u"Workout" && open) {
            if (open->start.isValid() && open->end.isValid())
                contents.workouts << *open;
            open.reset();
        }
    }
    if (xml.hasError()) {
        throw HealthStoreError(
            u"export.xml, line %1: %2"_s.arg(xml.lineNumber()).arg(xml.errorString()));
    }
    std::sort(contents.workouts.begin(), contents.workouts.end(),
              [](const HealthWorkoutSample &a, const HealthWorkoutSample &b) {
                  return a.start != b.start ? a.start < b.start : a.uuid < b.uuid;
              });
    // The same workout listed twice (it happens in merged exports) goes up once.
    contents.workouts.erase(
        std::unique(contents.workouts.begin(), contents.workouts.end(),
                    [](const auto &a, const auto &b) { return a.uuid == b.uuid; }),
        contents.workouts.end());
    return contents;
}

QCoro::Task<> HealthExportStore::requestRead()
{
    const Holder holder = m_holder;
    if (*holder)
        co_return;
    auto file = std::make_shared<QFile>(m_file);
    if (!file->open(QIODevice::ReadOnly))
        throw HealthStoreError(u"%1: %2"_s.arg(m_file, file->errorString()));
    auto result = std::make_shared<std::optional<Contents>>();
    auto error = std::make_shared<QString>();
    // A years-long export is hundreds of megabytes: read it off the main thread.
    std::unique_ptr<QThread> reader(QThread::create([file, result, error] {
        try {
            *result = parse(*file);
        } catch (const HealthStoreError &failure) {
            *error = failure.description;
        }
    }));
    reader->start();
    co_await qCoro(reader.get()).waitForFinished();
    if (!*result)
        throw HealthStoreError(*error);
    *holder = std::make_shared<const Contents>(std::move(**result));
}

QCoro::Task<QList<std::pair<QDate, double>>> HealthExportStore::daily(HealthMetric metric,
                                                                      QDateTime from, QDateTime to)
{
    const Holder holder = m_holder;
    co_await requestRead();
    const std::shared_ptr<const Contents> contents = *holder;
    QList<std::pair<QDate, double>> out;
    const auto byDay = contents->days.value(metric);
    const QDate first = from.toLocalTime().date();
    const QDate last = to.toLocalTime().date();
    for (auto day = byDay.lowerBound(first); day != byDay.cend() && day.key() <= last; ++day) {
        double value = 0;
        if (metric == HealthMetric::RestingHeartRate) {
            double total = 0;
            int count = 0;
            for (const auto &[sum, samples] : day.value()) {
                total += sum;
                count += samples;
            }
            value = count ? total / count : 0;
        } else {
            // Phone and watch both count the same steps: the fuller source stands for the day.
            for (const auto &[sum, samples] : day.value())
                value = std::max(value, sum);
        }
        out.append({day.key(), value});
    }
    co_return out;
}

QCoro::Task<HealthChanges> HealthExportStore::workouts(QDateTime since, QByteArray anchor,
                                                       int limit)
{
    const Holder holder = m_holder;
    co_await requestRead();
    const std::shared_ptr<const Contents> contents = *holder;
    // The anchor is the set of workouts already handed out.
    QSet<QString> delivered;
    const QJsonArray known = QJsonDocument::fromJson(anchor).array();
    for (const QJsonValue &id : known)
        delivered.insert(id.toString());
    QSet<QString> present;
    for (const HealthWorkoutSample &w : contents->workouts)
        present.insert(w.uuid);

    HealthChanges changes;
    QStringList gone(delivered.begin(), delivered.end());
    gone.sort();
    for (const QString &id : gone) {
        if (changes.deleted.size() >= limit)
            break;
        if (!present.contains(id)) {
            changes.deleted << id;
            delivered.remove(id);
        }
    }
    for (const HealthWorkoutSample &w : contents->workouts) {
        if (changes.added.size() + changes.deleted.size() >= limit)
            break;
        if (w.start >= since && !delivered.contains(w.uuid)) {
            changes.added << w;
            delivered.insert(w.uuid);
        }
    }
    QStringList next(delivered.begin(), delivered.end());
    next.sort();
    changes.anchor = QJsonDocument(QJsonArray::fromStringList(next)).toJson(QJsonDocument::Compact);
    co_return changes;
}
