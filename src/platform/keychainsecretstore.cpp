#include "keychainsecretstore.h"

#include "appdata.h"
#include "filesecretstore.h"

#include <QCoroSignal>
#include <QDir>
#include <qt6keychain/keychain.h>

#include <cstdio>

namespace {

using namespace std::chrono_literals;

// A secret service that does not answer in this time is treated as absent.
constexpr auto keychainPatience = 5s;

enum class Outcome { Done, Missing, Unavailable };

template<class Job>
QCoro::Task<Outcome> run(Job *job)
{
    job->setAutoDelete(false);
    std::unique_ptr<Job> owned(job);
    job->start();
    const auto finished = co_await qCoro(job, &QKeychain::Job::finished, keychainPatience);
    if (!finished)
        co_return Outcome::Unavailable;
    switch (job->error()) {
    case QKeychain::NoError: co_return Outcome::Done;
    case QKeychain::EntryNotFound: co_return Outcome::Missing;
    default: co_return Outcome::Unavailable;
    }
}

} // namespace

KeychainSecretStore::KeychainSecretStore(QString service, std::unique_ptr<SecretStore> fallback)
    : m_service(std::move(service))
    , m_fallback(std::move(fallback))
{
}

void KeychainSecretStore::giveUp(const QString &why)
{
    if (m_unavailable)
        return;
    m_unavailable = true;
    std::fprintf(stderr, "halvenmark: no usable secret service (%s); keeping the session in an "
                         "owner-only file instead.\n",
                 qPrintable(why));
}

QCoro::Task<std::optional<QString>> KeychainSecretStore::read(QString key)
{
    if (!m_unavailable) {
        auto *job = new QKeychain::ReadPasswordJob(m_service);
        job->setKey(key);
        const Outcome outcome = co_await run(job);
        if (outcome == Outcome::Done)
            co_return job->textData();
        if (outcome == Outcome::Missing)
            co_return std::nullopt;
        giveUp(job->errorString());
    }
    co_return co_await m_fallback->read(key);
}

QCoro::Task<bool> KeychainSecretStore::write(QString key, QString value)
{
    if (!m_unavailable) {
        auto *job = new QKeychain::WritePasswordJob(m_service);
        job->setKey(key);
        job->setTextData(value);
        // Never co_await inside a condition: GCC 12 miscompiles it.
        const Outcome outcome = co_await run(job);
        if (outcome == Outcome::Done)
            co_return true;
        giveUp(job->errorString());
    }
    co_return co_await m_fallback->write(key, value);
}

QCoro::Task<bool> KeychainSecretStore::remove(QString key)
{
    if (!m_unavailable) {
        auto *job = new QKeychain::DeletePasswordJob(m_service);
        job->setKey(key);
        const Outcome outcome = co_await run(job);
        if (outcome != Outcome::Unavailable)
            co_return true;
        giveUp(job->errorString());
    }
    co_return co_await m_fallback->remove(key);
}
