#pragma once

#include "platform/healthstore.h"

#include <QHash>
#include <QIODevice>
#include <QMap>

#include <memory>

// The health store of a phone's health export (its export.xml of records and workouts), for
// devices without a live store of their own. The file is read once, streamed, when access
// is asked for; from then on it answers like the live store would.
class HealthExportStore : public HealthStore
{
public:
    struct Contents {
        QList<HealthWorkoutSample> workouts; // by start, then UUID
        // Per metric and day: the value of each source, then the number of samples.
        QMap<HealthMetric, QMap<QDate, QHash<QString, std::pair<double, int>>>> days;
    };

    explicit HealthExportStore(QString file);

    QString deviceName() const override;
    QCoro::Task<> requestRead() override;
    QCoro::Task<QList<std::pair<QDate, double>>> daily(HealthMetric metric, QDateTime from,
                                                       QDateTime to) override;
    QCoro::Task<HealthChanges> workouts(QDateTime since, QByteArray anchor, int limit) override;
    // An export does not change under us: nothing to observe.
    void observe(std::function<void()>) override {}
    void stopObserving() override {}

    // Reads an export; throws HealthStoreError naming the line of a malformed file.
    static Contents parse(QIODevice &device);
    // "2024-05-01 07:30:00 +0200", the export's time form; invalid when it is not that.
    static QDateTime exportTime(QStringView text);

private:
    // Shared with queries under way, so one that resumes after the store is gone still
    // has what it reads.
    using Holder = std::shared_ptr<std::shared_ptr<const Contents>>;
    QString m_file;
    Holder m_holder = std::make_shared<std::shared_ptr<const Contents>>();
};
