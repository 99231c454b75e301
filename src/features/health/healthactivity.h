#pragma once

#include <QString>

// Workout activity types: the store's raw numbers, our keys, their names and icons.
namespace HealthActivity {

// The key for a raw number; "other" for any type outside the table.
QString key(int rawType);
// The raw number of a key, or of a health-export name ("HKWorkoutActivityTypeRunning");
// the store's "other" (3000) when unknown.
int rawOf(const QString &keyOrExportName);
inline constexpr int otherType = 3000;

QString title(const QString &key);
QString symbol(const QString &key);

} // namespace HealthActivity
