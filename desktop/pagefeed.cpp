#include "pagefeed.h"

#include "app.h"
#include "net/api.h"
#include "net/failuretext.h"
#include "net/jsonrecord.h"

#include <QJsonValue>

using namespace Qt::StringLiterals;

PageFeed::PageFeed(QObject *parent)
    : QObject(parent)
{}

PageFeed::~PageFeed() = default;

void PageFeed::setShell(App *shell)
{
    if (shell == m_shell)
        return;
    m_shell = shell;
    emit shellChanged();
    rebuild();
}

void PageFeed::componentComplete()
{
    m_complete = true;
    rebuild();
}

void PageFeed::setPath(const QString &path)
{
    if (path == m_path)
        return;
    m_path = path;
    emit pathChanged();
    rebuild();
}

void PageFeed::setEvery(double every)
{
    if (every == m_every)
        return;
    m_every = every;
    emit everyChanged();
    rebuild();
}

QVariant PageFeed::value() const
{
    return m_core ? m_core->value() : QVariant();
}

bool PageFeed::loading() const
{
    return m_core && m_core->loading();
}

QString PageFeed::failure() const
{
    if (!m_actionFailure.isEmpty())
        return m_actionFailure;
    return m_core ? m_core->failure() : QString();
}

void PageFeed::rebuild()
{
    m_core.reset();
    if (m_complete && m_shell && !m_path.isEmpty()) {
        const Ports &ports = m_shell->ports();
        m_core = std::make_unique<FeedCore>(
            ports.api, u"webapi/"_s + m_path, m_every,
            [](const QByteArray &body) -> std::any { return Decode::parse(body); },
            [](const std::any &value) {
                return std::any_cast<const QJsonValue &>(value).toVariant();
            },
            ports.sleeper);
        connect(m_core.get(), &FeedCore::valueChanged, this, &PageFeed::valueChanged);
        connect(m_core.get(), &FeedCore::loadingChanged, this, &PageFeed::loadingChanged);
        connect(m_core.get(), &FeedCore::failureChanged, this, &PageFeed::failureChanged);
        m_core->load();
        m_core->watch();
    }
    emit valueChanged();
    emit loadingChanged();
    emit failureChanged();
}

void PageFeed::reload()
{
    if (m_core)
        m_core->load();
}

void PageFeed::post(const QString &path, const QVariantMap &body)
{
    act(QPointer<PageFeed>(this), u"webapi/"_s + path, QJsonObject::fromVariantMap(body));
}

QCoro::Task<> PageFeed::act(QPointer<PageFeed> feed, QString path, QJsonObject body)
{
    feed->m_acting = true;
    feed->m_actionFailure.clear();
    emit feed->actingChanged();
    std::exception_ptr failed;
    App *shell = feed->m_shell;
    try {
        if (!shell)
            throw Api::Unauthorized();
        co_await shell->ports().api.post(path, body);
    } catch (...) {
        failed = std::current_exception();
    }
    if (!feed)
        co_return;
    feed->m_acting = false;
    emit feed->actingChanged();
    if (failed) {
        feed->m_actionFailure = FailureText::of(failed);
        emit feed->failureChanged();
        co_return;
    }
    emit feed->failureChanged();
    if (feed->m_core)
        co_await feed->m_core->load();
}
