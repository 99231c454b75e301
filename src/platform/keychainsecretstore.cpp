#include "keychainsecretstore.h"

#include "filesecretstore.h"
#include "platformlog.h"

#include <QTimer>
#include <qt6keychain/keychain.h>

#include <coroutine>

namespace {

using namespace std::chrono_literals;

enum class Outcome { Done, Missing, Unavailable };

// What a finished job said, copied out while the job still exists.
struct Result {
    Outcome outcome = Outcome::Unavailable;
    QString text;
    QString error;
};

// Filled by the job's finished handler or by our own timer, whichever comes first. The
// waiting coroutine resumes from the event loop, never inside the job's own signal (the job
// reads itself after emitting). Shared, so a handler that fires late finds it still alive.
struct Completion : std::enable_shared_from_this<Completion> {
    std::coroutine_handle<> waiter;
    std::optional<Result> result;
    QMetaObject::Connection finished;

    void complete(Result r)
    {
        if (result)
            return;
        result = std::move(r);
        QTimer::singleShot(0, [self = shared_from_this()] {
            if (auto h = std::exchange(self->waiter, {}))
                h.resume();
        });
    }
};

struct Wait {
    std::shared_ptr<Completion> state;
    bool await_ready() const { return state->result.has_value(); }
    void await_suspend(std::coroutine_handle<> h) { state->waiter = h; }
    Result await_resume() { return *state->result; }
};

// Ends a job we started: a finished one is deleted now; one still running (we stopped
// waiting, or the task was dropped) deletes itself when the service finally answers.
struct JobEnd {
    std::shared_ptr<Completion> state;
    void operator()(QKeychain::Job *job) const
    {
        state->waiter = {};
        // Only our own handler: QtKeychain's queue of jobs listens to the job as well.
        QObject::disconnect(state->finished);
        if (state->result && state->result->outcome != Outcome::Unavailable)
            job->deleteLater();
        else
            job->setAutoDelete(true);
    }
};

template<class Job>
QCoro::Task<Result> run(Job *raw, std::chrono::milliseconds patience)
{
    auto state = std::make_shared<Completion>();
    raw->setAutoDelete(false);
    std::unique_ptr<Job, JobEnd> job(raw, JobEnd{state});
    state->finished = QObject::connect(raw, &QKeychain::Job::finished, raw, [state, raw] {
        Result r;
        switch (raw->error()) {
        case QKeychain::NoError: r.outcome = Outcome::Done; break;
        case QKeychain::EntryNotFound: r.outcome = Outcome::Missing; break;
        default: r.outcome = Outcome::Unavailable; break;
        }
        if constexpr (std::is_same_v<Job, QKeychain::ReadPasswordJob>)
            r.text = raw->textData();
        r.error = raw->errorString();
        state->complete(std::move(r));
    });
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, [state] {
        state->complete(Result{Outcome::Unavailable, {}, QStringLiteral("no answer in time")});
    });
    timer.start(patience);
    raw->start();
    // Named first: GCC 12 destroys a temporary awaitable in a co_await twice.
    Wait wait{state};
    const Result result = co_await wait;
    co_return result;
}

} // namespace

KeychainSecretStore::KeychainSecretStore(QString service, std::unique_ptr<SecretStore> fallback,
                                         std::chrono::milliseconds patience)
    : m_service(std::move(service))
    , m_fallback(std::move(fallback))
    , m_patience(patience)
{
}

void KeychainSecretStore::giveUp(const QString &why)
{
    if (m_unavailable)
        return;
    m_unavailable = true;
    qCWarning(lcPlatform).noquote() << "no usable secret service (" + why
                                           + "); keeping the session in an owner-only file instead.";
}

QCoro::Task<std::optional<QString>> KeychainSecretStore::read(QString key)
{
    if (!m_unavailable) {
        auto *job = new QKeychain::ReadPasswordJob(m_service);
        job->setKey(key);
        const Result result = co_await run(job, m_patience);
        if (result.outcome == Outcome::Done)
            co_return result.text;
        // Missing here may still be in the file, written by a run that had no keychain.
        if (result.outcome == Outcome::Unavailable)
            giveUp(result.error);
    }
    co_return co_await m_fallback->read(key);
}

QCoro::Task<bool> KeychainSecretStore::write(QString key, QString value)
{
    if (!m_unavailable) {
        auto *job = new QKeychain::WritePasswordJob(m_service);
        job->setKey(key);
        job->setTextData(value);
        const Result result = co_await run(job, m_patience);
        if (result.outcome == Outcome::Done) {
            // An older copy in the file must not outlive this one.
            co_await m_fallback->remove(key);
            co_return true;
        }
        giveUp(result.error);
    }
    co_return co_await m_fallback->write(key, value);
}

QCoro::Task<bool> KeychainSecretStore::remove(QString key)
{
    if (!m_unavailable) {
        auto *job = new QKeychain::DeletePasswordJob(m_service);
        job->setKey(key);
        const Result result = co_await run(job, m_patience);
        if (result.outcome == Outcome::Unavailable)
            giveUp(result.error);
    }
    // Wherever it was written, it goes.
    co_return co_await m_fallback->remove(key);
}
