#pragma once

#include <QByteArray>
#include <QJsonObject>

#include <optional>

// What the previous run left behind, as the report posted to "webapi/client-report".
namespace CrashReport {

// From the previous run's "crash.txt" and "run.json" (either may be missing): a crash when
// the crash file exists; else, for a run that was in front and did not end normally, a
// hang (a worst stall of 3 s or more) or a silent kill. Nothing for any other run.
std::optional<QJsonObject> previous(const std::optional<QByteArray> &crashText,
                                    const std::optional<QByteArray> &runJson);

} // namespace CrashReport
