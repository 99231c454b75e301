#include "filesecretstore.h"

#include "atomicfile.h"

#include <QFile>
#include <QJsonDocument>

FileSecretStore::FileSecretStore(QString path)
    : m_path(std::move(path))
{
}

QJsonObject FileSecretStore::load() const
{
    const auto bytes = AtomicFile::read(m_path);
    return bytes ? QJsonDocument::fromJson(*bytes).object() : QJsonObject();
}

bool FileSecretStore::save(const QJsonObject &items) const
{
    if (items.isEmpty())
        return !QFile::exists(m_path) || QFile::remove(m_path);
    return AtomicFile::write(m_path, QJsonDocument(items).toJson(QJsonDocument::Compact));
}

QCoro::Task<std::optional<QString>> FileSecretStore::read(QString key)
{
    const QJsonValue value = load().value(key);
    co_return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

QCoro::Task<bool> FileSecretStore::write(QString key, QString value)
{
    QJsonObject items = load();
    items.insert(key, value);
    co_return save(items);
}

QCoro::Task<bool> FileSecretStore::remove(QString key)
{
    QJsonObject items = load();
    // Nothing to change: the file is left as it is.
    if (!items.contains(key))
        co_return true;
    items.remove(key);
    co_return save(items);
}
