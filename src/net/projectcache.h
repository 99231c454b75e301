#pragma once

#include <QByteArray>
#include <QString>

#include <any>
#include <optional>

// The on-disk copy of every server page the client reads, per user, so screens draw at once
// and work offline. File names are hashes, so any path maps into one flat folder.
// Files may be read and written from anywhere; the memory layer is main-thread only.
namespace ProjectCache {

// The cache folder; empty when the platform gives no data folder.
QString directory();

// Whether a page may be kept: first, unpaged views of "webapi/" pages, minus the chat
// history, the session's own pages and one-shot actions.
bool keeps(const QString &path);

// The file of a page for a user of a server; nothing for an empty user or a page that is not
// kept.
std::optional<QString> file(const QString &server, const QString &path, const QString &user);

// The file name: lower-case hex SHA-256 of "<base>|<user>|<path>".
QString fileName(const QString &base, const QString &user, const QString &path);

// Lower-case hex SHA-256, the form of every digest the client sends.
QString digest(const QByteArray &bytes);

std::optional<QByteArray> read(const QString &server, const QString &path, const QString &user);
// Atomic; silently nothing when the page has no file or the write fails.
void write(const QByteArray &data, const QString &server, const QString &path,
           const QString &user);
void remove(const QString &server, const QString &path, const QString &user);
// Every file and the memory layer; on sign-out.
void clear();

// The memory layer: a decoded value and the digest it came from.
struct Decoded {
    std::any value;
    QString digest;
};
void remember(std::any value, const QString &digest, const QString &server, const QString &path,
              const QString &user);
std::optional<Decoded> remembered(const QString &server, const QString &path,
                                  const QString &user);

} // namespace ProjectCache
