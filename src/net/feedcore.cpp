#include "feedcore.h"
#include "net/netlog.h"

#include "failuretext.h"
#include "platform/shutdown.h"
#include "platform/sleeper.h"
#include "projectcache.h"
#include "wire.h"

#include <QLoggingCategory>
#include <QPointer>

#include <cmath>

namespace {

std::chrono::milliseconds millis(double seconds)
{
    return std::chrono::milliseconds(qint64(std::llround(std::max(0.0, seconds) * 1000)));
}

} // namespace

FeedCore::FeedCore(Api &api, QString path, double every, Api::Decoder decode, Presenter present,
                   Sleeper &sleeper, QObject *parent)
    : QObject(parent)
    , m_api(api)
    , m_path(Wire::relativePath(std::move(path)))
    , m_every(every)
    , m_decode(std::move(decode))
    , m_present(std::move(present))
    , m_sleeper(&sleeper)
{
    // A page already read in this run shows at once, with no network at all.
    if (const auto known = ProjectCache::remembered(m_api.base().toString(), m_path,
                                                        m_api.signedInUser())) {
        m_value = known->value;
        m_digest = known->digest;
        m_shown = true;
    }
}

void FeedCore::setLoading(bool loading)
{
    if (m_loading == loading)
        return;
    m_loading = loading;
    emit loadingChanged();
}

void FeedCore::setFailure(const QString &failure)
{
    if (m_failure == failure)
        return;
    m_failure = failure;
    emit failureChanged();
}

QCoro::Task<> FeedCore::load()
{
    QPointer<FeedCore> self(this);
    const QString path = m_path;
    const Api::Decoder decode = m_decode;
    std::exception_ptr failed;
    Api::AnyPage page;
    try {
        page = co_await m_api.page(path, decode);
    } catch (...) {
        failed = std::current_exception();
    }
    if (!self)
        co_return;
    if (failed) {
        // Unauthorized says nothing here: the session signs out and the screen goes with it.
        if (const QString text = FailureText::of(failed); !text.isEmpty())
            setFailure(text);
        setLoading(false);
        co_return;
    }
    ProjectCache::remember(page.value, page.digest, m_api.base().toString(), path,
                           m_api.signedInUser());
    const bool changed = !m_shown || page.digest != m_digest;
    if (changed) {
        m_value = std::move(page.value);
        m_digest = page.digest;
        m_shown = true;
    }
    setFailure(QString());
    setLoading(false);
    if (changed)
        emit valueChanged();
    noteRefreshing();
}

void FeedCore::noteRefreshing()
{
    QHash<QString, double> &table = m_api.due();
    const auto due = table.find(m_path);
    if (due == table.end()) {
        m_retries = 0;
        return;
    }
    const double seconds = *due;
    table.erase(due);
    if (m_retries >= maxRefreshRetries) {
        qCDebug(lcNet) << m_path << "is still being rebuilt; giving up until the next load";
        m_retries = 0;
        return;
    }
    ++m_retries;
    retryLater(this, m_sleeper, millis(seconds), ++m_retryGeneration);
}

QCoro::Task<> FeedCore::retryLater(QPointer<FeedCore> feed, Sleeper *sleeper,
                                   std::chrono::milliseconds delay, int generation)
{
    co_await sleeper->sleep(delay);
    // A later retry replaces this one; a closed screen or the end of the process ends it.
    if (!feed || feed->m_retryGeneration != generation || Shutdown::begun())
        co_return;
    co_await feed->load();
}

void FeedCore::watch()
{
    if (m_every <= 0 || m_watching)
        return;
    m_watching = true;
    watchLoop(this, m_sleeper, millis(m_every));
}

QCoro::Task<> FeedCore::watchLoop(QPointer<FeedCore> feed, Sleeper *sleeper,
                                  std::chrono::milliseconds period)
{
    while (feed && !Shutdown::begun()) {
        co_await sleeper->sleep(period);
        if (!feed || Shutdown::begun())
            co_return;
        co_await feed->load();
    }
}
