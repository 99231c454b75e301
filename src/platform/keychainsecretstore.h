#pragma once

#include "secretstore.h"

#include <chrono>

// The desktop's secret service through QtKeychain. When the service turns out to be missing
// or silent, it moves to the fallback store for the rest of the run and says so once.
class KeychainSecretStore : public SecretStore
{
public:
    // A service that does not answer within patience is treated as absent.
    KeychainSecretStore(QString service, std::unique_ptr<SecretStore> fallback,
                        std::chrono::milliseconds patience = std::chrono::seconds(5));

    QCoro::Task<std::optional<QString>> read(QString key) override;
    QCoro::Task<bool> write(QString key, QString value) override;
    QCoro::Task<bool> remove(QString key) override;

private:
    void giveUp(const QString &why);

    QString m_service;
    std::unique_ptr<SecretStore> m_fallback;
    std::chrono::milliseconds m_patience;
    bool m_unavailable = false;
};
