#pragma once

#include "secretstore.h"

#include <QJsonObject>

// Secrets in one JSON file readable by its owner only: for machines without a secret service.
class FileSecretStore : public SecretStore
{
public:
    explicit FileSecretStore(QString path);

    QCoro::Task<std::optional<QString>> read(QString key) override;
    QCoro::Task<bool> write(QString key, QString value) override;
    QCoro::Task<bool> remove(QString key) override;

    QString path() const { return m_path; }

private:
    QJsonObject load() const;
    bool save(const QJsonObject &items) const;

    QString m_path;
};
