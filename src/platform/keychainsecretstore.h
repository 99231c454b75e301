#pragma once

#include "secretstore.h"

// The desktop's secret service through QtKeychain. When the service turns out to be missing
// or silent, it moves to the fallback store for the rest of the run and says so once.
class KeychainSecretStore : public SecretStore
{
public:
    KeychainSecretStore(QString service, std::unique_ptr<SecretStore> fallback);

    QCoro::Task<std::optional<QString>> read(QString key) override;
    QCoro::Task<bool> write(QString key, QString value) override;
    QCoro::Task<bool> remove(QString key) override;

private:
    void giveUp(const QString &why);

    QString m_service;
    std::unique_ptr<SecretStore> m_fallback;
    bool m_unavailable = false;
};
