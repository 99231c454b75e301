#pragma once

#include <QString>
#include <QVariant>

// Where the app keeps its files and settings. HALVENMARK_HOME, when set, holds
// everything (settings, secrets fallback, caches) so isolated clients can run side by side.
namespace AppData {

// The data folder, created when missing; empty when the platform gives none.
QString directory();

// A file or folder name inside the data folder.
QString path(const QString &name);

// Settings ("user defaults"). Each call reads the store afresh; safe from any thread.
QVariant setting(const QString &key, const QVariant &fallback = {});
void setSetting(const QString &key, const QVariant &value);
void removeSetting(const QString &key);
// Every setting whose key starts with prefix.
void removeSettings(const QString &prefix);

} // namespace AppData
