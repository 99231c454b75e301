#include "diagnostics.h"

#include "crash.h"
#include "net/api.h"
#include "platform/atomicfile.h"
#include "platform/clock.h"
#include "reportqueue.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace Diagnostics {

QString folder()
{
    return QDir(Crash::folder()).filePath(u"diagnostics"_s);
}

bool didReceive(const QByteArray &payload, const Clock &clock, const QString &folder)
{
    const QString name = u"%1-%2.json"_s.arg(clock.now().toMSecsSinceEpoch())
                             .arg(QUuid::createUuid().toString(QUuid::Id128).left(8));
    return AtomicFile::write(QDir(folder).filePath(name), payload);
}

QJsonObject report(const QByteArray &payload)
{
    const bool truncated = payload.size() > maxPayload;
    const QByteArray kept = truncated ? payload.left(maxPayload) : payload;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(kept, &error);
    const bool parsed = error.error == QJsonParseError::NoError && document.isObject();
    return {
        {u"kind"_s, u"metrickit"_s},
        {u"reason"_s, u"on-device diagnostic payload"_s},
        {u"build"_s, Api::userAgent()},
        {u"truncated"_s, truncated},
        {u"payload"_s, parsed ? document.object() : QJsonObject()},
        {u"raw"_s, parsed ? QString() : QString::fromUtf8(kept)},
    };
}

int drain(ReportQueue &queue, const QString &folder)
{
    int queued = 0;
    const QDir dir(folder);
    for (const QString &name : dir.entryList({u"*.json"_s}, QDir::Files, QDir::Name)) {
        const QString path = dir.filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            continue;
        // Only what is sent is read: a huge payload never sits whole in memory.
        const QByteArray head = file.read(maxPayload + 1);
        file.close();
        if (queue.add(report(head))) {
            QFile::remove(path);
            ++queued;
        }
    }
    return queued;
}

} // namespace Diagnostics
