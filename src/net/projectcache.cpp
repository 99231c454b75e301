#include "projectcache.h"

#include "platform/appdata.h"
#include "platform/atomicfile.h"

using namespace Qt::StringLiterals;

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QUrlQuery>

namespace {

QHash<QString, ProjectCache::Decoded> &memo()
{
    // Plain data, main thread only; torn down with the process.
    static QHash<QString, ProjectCache::Decoded> table;
    return table;
}

std::optional<QString> memoKey(const QString &server, const QString &path, const QString &user)
{
    if (user.isEmpty() || !ProjectCache::keeps(path))
        return std::nullopt;
    return ProjectCache::fileName(server, user, path);
}

} // namespace

namespace ProjectCache {

QString directory()
{
    const QString dir = AppData::path(u"project-cache"_s);
    if (!dir.isEmpty())
        AppData::makeFolder(dir);
    return dir;
}

bool keeps(const QString &path)
{
    const qsizetype mark = path.indexOf(u'?');
    const QString page = mark < 0 ? path : path.left(mark);
    if (!page.startsWith(u"webapi/") || page.startsWith(u"webapi/messages")
        || page == u"webapi/me" || page == u"webapi/prefs"
        || page.startsWith(u"webapi/codex-accounts/login/") || page == u"webapi/memory/search")
        return false;
    if (mark < 0)
        return true;
    static const QStringList paging = {u"since"_s, u"activity_since"_s,
                                       u"before"_s, u"after"_s,
                                       u"offset"_s};
    const QUrlQuery query(path.mid(mark + 1));
    for (const auto &[name, value] : query.queryItems(QUrl::FullyDecoded)) {
        if (paging.contains(name) && !value.isEmpty() && value != u"0")
            return false;
    }
    return true;
}

QString fileName(const QString &base, const QString &user, const QString &path)
{
    return digest((base + u'|' + user + u'|' + path).toUtf8());
}

std::optional<QString> file(const QString &server, const QString &path, const QString &user)
{
    if (user.isEmpty() || !keeps(path))
        return std::nullopt;
    const QString dir = directory();
    if (dir.isEmpty())
        return std::nullopt;
    return QDir(dir).filePath(fileName(server, user, path));
}

QString digest(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

std::optional<QByteArray> read(const QString &server, const QString &path, const QString &user)
{
    const auto name = file(server, path, user);
    return name ? AtomicFile::read(*name) : std::nullopt;
}

void write(const QByteArray &data, const QString &server, const QString &path,
           const QString &user)
{
    if (const auto name = file(server, path, user))
        AtomicFile::write(*name, data);
}

void remove(const QString &server, const QString &path, const QString &user)
{
    if (const auto name = file(server, path, user))
        QFile::remove(*name);
}

void clear()
{
    memo().clear();
    const QString dir = AppData::path(u"project-cache"_s);
    if (!dir.isEmpty())
        QDir(dir).removeRecursively();
}

void remember(std::any value, const QString &digest, const QString &server, const QString &path,
              const QString &user)
{
    if (const auto key = memoKey(server, path, user))
        memo().insert(*key, Decoded{std::move(value), digest});
}

std::optional<Decoded> remembered(const QString &server, const QString &path,
                                  const QString &user)
{
    const auto key = memoKey(server, path, user);
    if (!key)
        return std::nullopt;
    const auto it = memo().constFind(*key);
    if (it == memo().constEnd())
        return std::nullopt;
    return *it;
}

} // namespace ProjectCache
