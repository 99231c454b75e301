#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

class Clock;

class ReportQueue;

// On-device diagnostic payloads (JSON from the platform), kept as files until sent.
namespace Diagnostics {

constexpr qsizetype maxPayload = 400'000;

// The folder the payloads wait in.
QString folder();

// Keeps a payload as a ".json" file in the folder until the next drain.
bool didReceive(const QByteArray &payload, const Clock &clock,
                const QString &folder = Diagnostics::folder());

// The report for one payload: at most the first 400,000 bytes ("truncated" then true),
// as a JSON object in "payload" when it parses, else as text in "raw".
QJsonObject report(const QByteArray &payload);

// Every ".json" file in the folder becomes a report in the queue and is deleted;
// unreadable files are skipped. The number of reports queued.
int drain(ReportQueue &queue, const QString &folder = Diagnostics::folder());

} // namespace Diagnostics
