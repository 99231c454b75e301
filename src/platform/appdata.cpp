#include "appdata.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>

namespace {

QString settingsFile()
{
    const QString home = qEnvironmentVariable("HALVENMARK_HOME");
    return home.isEmpty() ? QString() : QDir(home).filePath(QStringLiteral("settings.ini"));
}

// Under HALVENMARK_HOME an ini file; otherwise the platform's own store.
template<class F>
auto withSettings(F &&f)
{
    const QString file = settingsFile();
    if (file.isEmpty()) {
        QSettings settings;
        return f(settings);
    }
    QSettings settings(file, QSettings::IniFormat);
    return f(settings);
}

} // namespace

namespace AppData {

QString directory()
{
    QString dir = qEnvironmentVariable("HALVENMARK_HOME");
    if (dir.isEmpty())
        dir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    if (dir.isEmpty())
        return {};
    if (!QDir().mkpath(dir))
        return {};
    return dir;
}

QString path(const QString &name)
{
    const QString dir = directory();
    return dir.isEmpty() ? QString() : QDir(dir).filePath(name);
}

QVariant setting(const QString &key, const QVariant &fallback)
{
    return withSettings([&](QSettings &s) { return s.value(key, fallback); });
}

void setSetting(const QString &key, const QVariant &value)
{
    withSettings([&](QSettings &s) {
        s.setValue(key, value);
        s.sync();
    });
}

void removeSetting(const QString &key)
{
    withSettings([&](QSettings &s) {
        s.remove(key);
        s.sync();
    });
}

void removeSettings(const QString &prefix)
{
    withSettings([&](QSettings &s) {
        for (const QString &key : s.allKeys()) {
            if (key.startsWith(prefix))
                s.remove(key);
        }
        s.sync();
    });
}

} // namespace AppData
