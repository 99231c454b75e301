#include "appdata.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QSettings>
#include <QStandardPaths>

#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace {

constexpr QFileDevice::Permissions ownerFolder =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

// The settings file: under HALVENMARK_HOME an ini file, otherwise the platform's own store
// (an ini file on this platform too).
QString settingsFile()
{
    const QString home = qEnvironmentVariable("HALVENMARK_HOME");
    if (!home.isEmpty())
        return QDir(home).filePath(QStringLiteral("settings.ini"));
    return QSettings().fileName();
}

// The settings, read once and kept while the file stays the same. A change through these
// functions is seen on the next read; one by another process or by hand once the file is
// looked at again, which is at most every revalidateEvery (a stat costs several µs here, a
// read must cost well under one).
constexpr qint64 revalidateEveryNs = 50'000'000;

qint64 coarseNowNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return qint64(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

class SettingsMirror
{
public:
    QVariant value(const QString &key, const QVariant &fallback)
    {
        QMutexLocker lock(&m_mutex);
        refresh();
        const auto it = m_values.constFind(key);
        return it == m_values.constEnd() ? fallback : *it;
    }

    template<class F>
    void change(F &&f)
    {
        QMutexLocker lock(&m_mutex);
        refresh();
        QSettings settings(m_file, QSettings::IniFormat);
        f(settings);
        settings.sync();
        m_loaded = false; // read back on the next call, as another process would see it
    }

private:
    struct Stamp {
        bool exists = false;
        timespec mtime{};
        off_t size = 0;
        ino_t inode = 0;
        bool operator==(const Stamp &o) const
        {
            return exists == o.exists && mtime.tv_sec == o.mtime.tv_sec
                   && mtime.tv_nsec == o.mtime.tv_nsec && size == o.size && inode == o.inode;
        }
    };

    void refresh()
    {
        const char *home = std::getenv("HALVENMARK_HOME");
        const std::string homeNow = home ? home : "";
        if (!m_located || homeNow != m_home) {
            m_home = homeNow;
            m_file = settingsFile();
            m_native = QFile::encodeName(m_file).toStdString();
            m_located = true;
            m_stamp = {};
            m_loaded = false;
        }
        const qint64 nowNs = coarseNowNs();
        if (m_loaded && nowNs - m_checkedNs < revalidateEveryNs)
            return;
        m_checkedNs = nowNs;
        Stamp now;
        struct stat st {};
        if (::stat(m_native.c_str(), &st) == 0)
            now = Stamp{true, st.st_mtim, st.st_size, st.st_ino};
        if (m_loaded && now == m_stamp)
            return;
        m_values.clear();
        if (now.exists) {
            QSettings settings(m_file, QSettings::IniFormat);
            for (const QString &key : settings.allKeys())
                m_values.insert(key, settings.value(key));
        }
        m_stamp = now;
        m_loaded = true;
    }

    QMutex m_mutex;
    bool m_located = false;
    bool m_loaded = false;
    qint64 m_checkedNs = 0;
    std::string m_home;
    QString m_file;
    std::string m_native;
    Stamp m_stamp;
    QHash<QString, QVariant> m_values;
};

SettingsMirror &mirror()
{
    static SettingsMirror instance;
    return instance;
}

} // namespace

namespace AppData {

QString directory()
{
    QString dir = qEnvironmentVariable("HALVENMARK_HOME");
    if (dir.isEmpty())
        dir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    if (dir.isEmpty() || !makeFolder(dir))
        return {};
    static bool masked = [&] {
        // Whatever any area creates from now on (files, folders) is the owner's alone; a
        // folder left open by an older version is closed once.
        ::umask(S_IRWXG | S_IRWXO);
        QFile::setPermissions(dir, ownerFolder);
        return true;
    }();
    Q_UNUSED(masked);
    return dir;
}

bool makeFolder(const QString &path)
{
    const QString clean = QDir::cleanPath(QDir(path).absolutePath());
    if (QFileInfo(clean).isDir())
        return true;
    const QString parent = QFileInfo(clean).absolutePath();
    if (parent != clean && !makeFolder(parent))
        return false;
    return QDir().mkdir(clean, ownerFolder) || QFileInfo(clean).isDir();
}

QString path(const QString &name)
{
    const QString dir = directory();
    return dir.isEmpty() ? QString() : QDir(dir).filePath(name);
}

QVariant setting(const QString &key, const QVariant &fallback)
{
    return mirror().value(key, fallback);
}

void setSetting(const QString &key, const QVariant &value)
{
    // An unchanged value would still cost a locked rewrite of the file on every run.
    if (value.isValid() && mirror().value(key, {}) == value)
        return;
    mirror().change([&](QSettings &s) { s.setValue(key, value); });
}

void removeSetting(const QString &key)
{
    mirror().change([&](QSettings &s) { s.remove(key); });
}

void removeSettings(const QString &prefix)
{
    mirror().change([&](QSettings &s) {
        for (const QString &key : s.allKeys()) {
            if (key.startsWith(prefix))
                s.remove(key);
        }
    });
}

} // namespace AppData
