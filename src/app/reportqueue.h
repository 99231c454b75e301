#pragma once

#include <QCoroTask>
#include <QJsonObject>
#include <QString>

#include <functional>

class Api;
class Clock;

// Reports waiting for the server, one JSON file each, so that a report survives a run that
// ends (or is signed out) before it went out. Main thread only.
class ReportQueue
{
public:
    using Poster = std::function<QCoro::Task<>(QJsonObject)>;

    // The clock names the files by age; it outlives the queue.
    ReportQueue(QString folder, const Clock &clock);

    // Keeps the report on disk; the oldest go when more than `limit` wait (a crash loop).
    bool add(const QJsonObject &report);
    int size() const;

    // Posts every waiting report, oldest first, removing each one the server took. One the
    // server refuses as malformed is dropped (it would be refused forever); when the server
    // cannot be reached or nobody is signed in, the rest wait for the next flush.
    QCoro::Task<int> flush(Poster post);

    // POST "webapi/client-report" through api, which must outlive the poster.
    static Poster server(Api &api);

    static constexpr int limit = 20;

private:
    QStringList files() const;

    QString m_folder;
    const Clock *m_clock;
};
