#include "reportqueue.h"
#include "app/applog.h"

#include "net/api.h"
#include "platform/atomicfile.h"
#include "platform/clock.h"

#include <QDateTime>
#include <QDir>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {
}

ReportQueue::ReportQueue(QString folder, const Clock &clock)
    : m_folder(std::move(folder))
    , m_clock(&clock)
{}

QStringList ReportQueue::files() const
{
    // Names start with the time in milliseconds, so the name order is the age order.
    return QDir(m_folder).entryList({u"*.json"_s}, QDir::Files, QDir::Name);
}

int ReportQueue::size() const
{
    return int(files().size());
}

bool ReportQueue::add(const QJsonObject &report)
{
    const QString name =
        u"%1-%2.json"_s.arg(m_clock->now().toMSecsSinceEpoch(), 13, 10, QChar(u'0'))
            .arg(QUuid::createUuid().toString(QUuid::Id128).left(8));
    if (!AtomicFile::write(QDir(m_folder).filePath(name),
                           QJsonDocument(report).toJson(QJsonDocument::Compact))) {
        qCWarning(lcApp) << "could not keep a report in" << m_folder;
        return false;
    }
    QStringList waiting = files();
    while (waiting.size() > limit)
        QFile::remove(QDir(m_folder).filePath(waiting.takeFirst()));
    return true;
}

QCoro::Task<int> ReportQueue::flush(Poster post)
{
    // Copied: the queue object may be gone after an await.
    const QString folder = m_folder;
    const QStringList names = files();
    int sent = 0;
    for (const QString &name : names) {
        const QString path = QDir(folder).filePath(name);
        const std::optional<QByteArray> bytes = AtomicFile::read(path);
        const QJsonDocument document = bytes ? QJsonDocument::fromJson(*bytes) : QJsonDocument();
        if (!document.isObject()) {
            QFile::remove(path);
            continue;
        }
        const QJsonObject report = document.object();
        bool drop = false;
        try {
            co_await post(report);
            drop = true;
            ++sent;
        } catch (const Api::Failed &failed) {
            // A refusal of the request itself will not change; a busy or broken server may.
            drop = failed.status >= 400 && failed.status < 500 && failed.status != 408 &&
                   failed.status != 429;
            qCWarning(lcApp) << "client report not taken:" << failed.status << failed.reason;
            if (!drop)
                co_return sent;
        } catch (...) {
            co_return sent;
        }
        if (drop)
            QFile::remove(path);
    }
    co_return sent;
}

ReportQueue::Poster ReportQueue::server(Api &api)
{
    return [&api](QJsonObject report) -> QCoro::Task<> {
        co_await api.post(u"webapi/client-report"_s, std::move(report));
    };
}
