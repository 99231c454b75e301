#include "vaultstore.h"

#include "net/api.h"
#include "platform/ownerauth.h"
#include "platform/sleeper.h"
#include "vaultclipboard.h"
#include "vaultfailure.h"
#include "vaultpassword.h"
#include "vaulttext.h"

#include <QCoroSignal>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QPointer>
#include <QUrl>

#include <memory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcVault, "halvenmark.vault", QtWarningMsg)

// Whichever ends first, the exchange or the deadline, settles a call.
class VaultPending : public QObject
{
    Q_OBJECT

public:
    bool done = false;
    QByteArray data;
    std::exception_ptr error;

    void settle(QByteArray replyData, std::exception_ptr failure)
    {
        if (done)
            return;
        done = true;
        data = std::move(replyData);
        error = std::move(failure);
        emit settled();
    }

signals:
    void settled();
};

namespace {

QCoro::Task<> exchangeInto(Api &api, std::shared_ptr<VaultPending> pending, Api::Request request)
{
    try {
        Api::Reply reply = co_await api.exchange(std::move(request));
        pending->settle(std::move(reply.data), {});
    } catch (const Api::Failed &failed) {
        pending->settle({}, std::make_exception_ptr(VaultFailure::http(failed.status)));
    } catch (const Api::TransportError &) {
        pending->settle({}, std::make_exception_ptr(VaultFailure::unreachable()));
    } catch (...) {
        pending->settle({}, std::current_exception());
    }
}

QCoro::Task<> deadline(std::shared_ptr<VaultPending> pending, Sleeper &sleeper)
{
    co_await sleeper.sleep(VaultStore::timeout);
    if (!pending->done)
        qCInfo(lcVault) << "a vault request ran out of time";
    pending->settle({}, std::make_exception_ptr(VaultFailure::unreachable()));
}

// The vault's server paths: the list, and one item (with what follows its id).
QString listPath()
{
    return u"webapi/vault"_s;
}

QString itemPath(const QString &id, const QString &tail = {})
{
    return listPath() + u'/' + QString::fromLatin1(QUrl::toPercentEncoding(id)) + tail;
}

} // namespace

VaultStore::VaultStore(Api &api, OwnerAuth &auth, Clipboard *clipboard, Sleeper &sleeper,
                       QObject *parent)
    : QObject(parent)
    , m_auth(auth)
    , m_api(api)
    , m_sleeper(sleeper)
{
    if (clipboard)
        m_clipboard = new VaultClipboard(*clipboard, sleeper, this);
}

VaultStore::~VaultStore() = default;

QVariantList VaultStore::itemMaps() const
{
    QVariantList out;
    for (const VaultItem &item : m_items)
        out << item.toJson().toVariantMap();
    return out;
}

void VaultStore::setActive(bool active)
{
    m_active = active;
    if (!active)
        lock();
}

QCoro::Task<> VaultStore::unlock()
{
    if (!m_active)
        co_return;
    QPointer<VaultStore> self(this);
    const QString missing = m_auth.unavailable();
    if (!missing.isEmpty()) {
        setAuthError(missing);
        co_return;
    }
    setAuthError({});
    const OwnerAuth::Outcome outcome = co_await m_auth.evaluate(VaultText::reason());
    if (!self)
        co_return;
    if (!outcome.ok) {
        setAuthError(outcome.error.isEmpty() ? VaultText::locked() : outcome.error);
        co_return;
    }
    // Left the app while the prompt was up: it stays locked.
    if (!m_active)
        co_return;
    m_unlocked = true;
    emit unlockedChanged();
    co_await load();
}

void VaultStore::lock()
{
    setItems({});
    if (m_unlocked) {
        m_unlocked = false;
        emit unlockedChanged();
    }
}

QCoro::Task<> VaultStore::load()
{
    if (!m_unlocked)
        co_return;
    QPointer<VaultStore> self(this);
    setLoading(true);
    QList<VaultItem> items;
    std::exception_ptr error;
    try {
        const QJsonValue body = co_await call("GET"_ba, listPath(), std::nullopt);
        items = vaultListBody(body);
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;
    setLoading(false);
    m_loadError = error;
    setFailure(error ? VaultFailure::textOf(error) : QString());
    // Locked while the list was on its way: it is not shown.
    if (!error && m_unlocked)
        setItems(std::move(items));
}

QCoro::Task<VaultItem> VaultStore::save(std::optional<VaultItem> item, VaultKind kind,
                                        QMap<QString, QString> fields, bool primary)
{
    QJsonObject body;
    for (auto it = fields.cbegin(); it != fields.cend(); ++it)
        body.insert(it.key(), it.value());
    body.insert(u"kind"_s, VaultKinds::raw(kind));
    body.insert(u"primary"_s, primary);
    const QString path = item ? itemPath(item->id) : listPath();
    QPointer<VaultStore> self(this);
    const QJsonValue answer = co_await call("POST"_ba, path, body);
    const VaultItem saved = VaultOneBody::from(answer).item;
    if (!self || !m_unlocked)
        co_return saved;
    QList<VaultItem> items = m_items;
    bool replaced = false;
    for (VaultItem &existing : items) {
        if (existing.id == saved.id) {
            existing = saved;
            replaced = true;
        } else if (saved.primary && existing.kind == saved.kind) {
            existing.primary = false; // one default per kind
        }
    }
    if (!replaced)
        items.prepend(saved);
    setItems(std::move(items));
    co_return saved;
}

QCoro::Task<> VaultStore::remove(QString id)
{
    QPointer<VaultStore> self(this);
    co_await call("DELETE"_ba, itemPath(id), std::nullopt);
    if (!self)
        co_return;
    QList<VaultItem> items = m_items;
    items.removeIf([&](const VaultItem &item) { return item.id == id; });
    setItems(std::move(items));
}

QCoro::Task<QString> VaultStore::reveal(VaultItem item)
{
    const QJsonValue answer =
        co_await call("POST"_ba, itemPath(item.id, u"/reveal"_s), QJsonObject());
    co_return VaultOneBody::from(answer).value;
}

bool VaultStore::copy(const QString &text)
{
    return m_clipboard && m_clipboard->copy(text);
}

QString VaultStore::generate()
{
    return VaultPassword::generate();
}

QCoro::Task<QJsonValue> VaultStore::call(QByteArray method, QString path,
                                         std::optional<QJsonObject> body)
{
    Api::Request request = m_api.authorized(path, method, std::move(body));
    request.request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json"_ba);
    request.request.setTransferTimeout(int(std::chrono::milliseconds(timeout).count()));
    auto pending = std::make_shared<VaultPending>();
    exchangeInto(m_api, pending, std::move(request));
    deadline(pending, m_sleeper);
    if (!pending->done)
        co_await qCoro(pending.get(), &VaultPending::settled);
    if (pending->error)
        std::rethrow_exception(pending->error);
    const QByteArray data = std::move(pending->data);
    if (data.trimmed().isEmpty())
        co_return QJsonValue();
    const QJsonDocument document = QJsonDocument::fromJson(data);
    if (document.isObject())
        co_return document.object();
    if (document.isArray())
        co_return document.array();
    co_return QJsonValue();
}

void VaultStore::setItems(QList<VaultItem> items)
{
    if (items.isEmpty() && m_items.isEmpty())
        return;
    m_items = std::move(items);
    emit itemsChanged();
}

void VaultStore::setLoading(bool loading)
{
    if (m_loading == loading)
        return;
    m_loading = loading;
    emit loadingChanged();
}

void VaultStore::setFailure(const QString &failure)
{
    if (m_failure == failure)
        return;
    m_failure = failure;
    emit failureChanged();
}

void VaultStore::setAuthError(const QString &error)
{
    if (m_authError == error)
        return;
    m_authError = error;
    emit authErrorChanged();
}

#include "vaultstore.moc"
