#pragma once

#include <QString>
#include <QVariant>

// Where the app keeps its files and settings. HALVENMARK_HOME, when set, holds
// everything (settings, secrets fallback, caches) so isolated clients can run side by side.
namespace AppData {

// The data folder, created owner-only (0700) when missing; empty when the platform gives
// none. From the first call on, whatever the process creates is owner-only (umask 077).
QString directory();

// Creates a folder and its missing parents, each owner-only. True when it exists after.
bool makeFolder(const QString &path);

// A file or folder name inside the data folder.
QString path(const QString &name);

// Settings ("user defaults"), read from memory. A change made here is seen by the next call;
// one by another process within 50 ms (the file is looked at again no more often than that).
// Safe from any thread.
QVariant setting(const QString &key, const QVariant &fallback = {});
void setSetting(const QString &key, const QVariant &value);
void removeSetting(const QString &key);
// Every setting whose key starts with prefix.
void removeSettings(const QString &prefix);

} // namespace AppData
