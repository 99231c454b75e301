#pragma once

#include <QCoroTask>
#include <QString>

#include <memory>
#include <optional>

// The platform's keychain, as the app uses it: a few named text items.
class SecretStore
{
public:
    virtual ~SecretStore() = default;
    // The item's value; nothing when it is not there.
    virtual QCoro::Task<std::optional<QString>> read(QString key) = 0;
    virtual QCoro::Task<bool> write(QString key, QString value) = 0;
    virtual QCoro::Task<bool> remove(QString key) = 0;

    // The desktop keychain when a secret service runs, else an owner-only file in the
    // data folder (said once on stderr). HALVENMARK_SECRETS=file forces the file.
    static std::unique_ptr<SecretStore> platform(const QString &service);
};
