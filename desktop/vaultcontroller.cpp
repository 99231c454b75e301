#include "vaultcontroller.h"

#include "features/vault/vaultfailure.h"
#include "features/vault/vaultitem.h"
#include "features/vault/vaultstore.h"
#include "features/vault/vaulttext.h"
#include "platform/pamownerauth.h"
#include "platform/sleeper.h"
#include "signatureimage.h"
#include "text/l.h"
#include "vaultfields.h"

#include <QCoroSignal>
#include <QQmlEngine>

using namespace Qt::StringLiterals;

namespace {

VaultController *s_instance = nullptr;

std::optional<VaultItem> itemOf(const VaultStore &store, const QString &id)
{
    for (const VaultItem &item : store.items()) {
        if (item.id == id)
            return item;
    }
    return std::nullopt;
}

} // namespace

VaultController::VaultController(Api &api, OwnerAuth *auth, Clipboard *clipboard, Sleeper &sleeper,
                                 QObject *parent)
    : QObject(parent)
{
    if (!auth) {
        m_ownAuth = std::make_unique<PamOwnerAuth>(
            [this](QString reason) { return askPassword(std::move(reason)); });
        auth = m_ownAuth.get();
    }
    m_store = new VaultStore(api, *auth, clipboard, sleeper, this);
    if (!s_instance)
        s_instance = this;
    connect(m_store, &VaultStore::unlockedChanged, this, [this] {
        if (!m_store->unlocked()) {
            ++m_generation;
            setRevealed({}, {});
        }
        emit unlockedChanged();
    });
    connect(m_store, &VaultStore::loadingChanged, this, &VaultController::loadingChanged);
    connect(m_store, &VaultStore::failureChanged, this, &VaultController::failureChanged);
    connect(m_store, &VaultStore::authErrorChanged, this, &VaultController::authErrorChanged);
    connect(m_store, &VaultStore::itemsChanged, this, &VaultController::itemsChanged);
}

VaultController::~VaultController()
{
    // A prompt still open ends as cancelled, so its coroutine does not wait for ever.
    if (m_asking)
        emit passwordAnswered(false, {});
    if (s_instance == this)
        s_instance = nullptr;
}

VaultController *VaultController::create(QQmlEngine *, QJSEngine *)
{
    // Made by main; a screen without the app gets none.
    if (!s_instance)
        return nullptr;
    QQmlEngine::setObjectOwnership(s_instance, QQmlEngine::CppOwnership);
    return s_instance;
}

VaultController *VaultController::instance()
{
    return s_instance;
}

bool VaultController::unlocked() const
{
    return m_store->unlocked();
}

bool VaultController::loading() const
{
    return m_store->loading();
}

QString VaultController::failure() const
{
    return m_store->failure();
}

QString VaultController::authError() const
{
    return m_store->authError();
}

QVariantList VaultController::items() const
{
    QVariantList out;
    for (const VaultItem &item : m_store->items()) {
        if (!VaultFields::matches(item, m_query, m_kind))
            continue;
        QVariantMap map = item.toJson().toVariantMap();
        map.insert(u"kindTitle"_s, VaultText::kind(item.kind));
        out << map;
    }
    return out;
}

int VaultController::total() const
{
    return int(m_store->items().size());
}

void VaultController::setQuery(const QString &query)
{
    if (query == m_query)
        return;
    m_query = query;
    emit itemsChanged();
}

void VaultController::setKind(const QString &kind)
{
    if (kind == m_kind)
        return;
    m_kind = kind;
    emit itemsChanged();
}

QStringList VaultController::kinds() const
{
    QStringList out;
    for (const VaultKind kind : VaultKinds::all())
        out << VaultKinds::raw(kind);
    return out;
}

bool VaultController::revealedIsImage() const
{
    return SignatureImage::isSignature(m_revealedValue);
}

void VaultController::setActive(bool active)
{
    if (!active) {
        cancelPassword();
        setRevealed({}, {});
    }
    m_store->setActive(active);
}

QVariantMap VaultController::texts() const
{
    return {
        {u"locked"_s, VaultText::locked()},           {u"lockedLine"_s, VaultText::lockedLine()},
        {u"unlock"_s, VaultText::unlock()},           {u"all"_s, VaultText::all()},
        {u"search"_s, VaultText::search()},           {u"empty"_s, VaultText::empty()},
        {u"emptyLine"_s, VaultText::emptyLine()},     {u"noMatch"_s, VaultText::noMatch()},
        {u"copied"_s, VaultText::copied()},           {u"encrypted"_s, VaultText::encrypted()},
        {u"primary"_s, VaultText::primary()},         {u"makePrimary"_s, VaultText::makePrimary()},
        {u"primaryLine"_s, VaultText::primaryLine()}, {u"signHere"_s, VaultText::signHere()},
        {u"redraw"_s, VaultText::redraw()},           {u"clear"_s, VaultText::clear()},
    };
}

QString VaultController::kindTitle(const QString &kind) const
{
    return VaultText::kind(kind);
}

QVariantList VaultController::fieldsOf(const QString &kind) const
{
    return VaultFields::forKindAsMaps(kind);
}

void VaultController::unlock()
{
    if (m_store->unlocked() || m_asking)
        return;
    unlocking(QPointer<VaultController>(this));
}

QCoro::Task<> VaultController::unlocking(QPointer<VaultController> self)
{
    co_await self->m_store->unlock();
}

void VaultController::lock()
{
    cancelPassword();
    m_store->lock();
}

void VaultController::reload()
{
    auto loading = m_store->load();
    Q_UNUSED(loading)
}

QCoro::Task<std::optional<QString>> VaultController::askPassword(QString reason)
{
    QPointer<VaultController> self(this);
    setAsking(true, reason);
    std::tuple<bool, QString> answer = co_await qCoro(this, &VaultController::passwordAnswered);
    if (self)
        self->setAsking(false);
    if (!std::get<0>(answer))
        co_return std::nullopt;
    co_return std::move(std::get<1>(answer));
}

void VaultController::answerPassword(const QString &password)
{
    if (m_asking)
        emit passwordAnswered(true, password);
}

void VaultController::cancelPassword()
{
    if (m_asking)
        emit passwordAnswered(false, {});
}

void VaultController::reveal(const QString &id)
{
    revealing(QPointer<VaultController>(this), id, false);
}

void VaultController::hide()
{
    setRevealed({}, {});
}

void VaultController::copy(const QString &id)
{
    revealing(QPointer<VaultController>(this), id, true);
}

QCoro::Task<> VaultController::revealing(QPointer<VaultController> self, QString id,
                                         bool toClipboard)
{
    const std::optional<VaultItem> item = itemOf(*self->m_store, id);
    if (!item || !self->m_store->unlocked())
        co_return;
    const quint64 generation = self->m_generation;
    self->setBusy(true);
    self->setActionError({});
    QString value;
    std::exception_ptr error;
    try {
        value = co_await self->m_store->reveal(*item);
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;
    self->setBusy(false);
    // Locked meanwhile: the answer is dropped unseen.
    if (generation != self->m_generation || !self->m_store->unlocked())
        co_return;
    if (error) {
        self->setActionError(VaultFailure::textOf(error));
        co_return;
    }
    if (!toClipboard) {
        self->setRevealed(id, value);
        co_return;
    }
    if (self->m_store->copy(value))
        emit self->copied();
    else
        self->setActionError(L::t(u"אין כאן לוח העתקה."_s, u"There is no clipboard here."_s,
                                  u"Здесь нет буфера обмена."_s));
    value.fill(u'\0');
}

QString VaultController::generate() const
{
    return VaultStore::generate();
}

void VaultController::save(const QString &id, const QString &kind, const QVariantMap &fields,
                           bool primary)
{
    QMap<QString, QString> kept;
    for (auto it = fields.cbegin(); it != fields.cend(); ++it) {
        const QString value = it.value().toString();
        if (!value.trimmed().isEmpty())
            kept.insert(it.key(), it.key() == u"title" ? value.trimmed() : value);
    }
    if (id.isEmpty() && !kept.contains(u"title"_s)) {
        setActionError(L::t(u"יש לתת שם."_s, u"Give it a title."_s, u"Укажите название."_s));
        return;
    }
    saving(QPointer<VaultController>(this), id, kind, std::move(kept), primary);
}

QCoro::Task<> VaultController::saving(QPointer<VaultController> self, QString id, QString kind,
                                      QMap<QString, QString> fields, bool primary)
{
    const std::optional<VaultKind> known = VaultKinds::from(kind);
    if (!known) {
        self->setActionError(VaultText::kind(kind));
        co_return;
    }
    const std::optional<VaultItem> item = id.isEmpty() ? std::nullopt : itemOf(*self->m_store, id);
    if (!id.isEmpty() && !item)
        co_return; // locked meanwhile: the form is gone with the list
    self->setBusy(true);
    self->setActionError({});
    std::exception_ptr error;
    try {
        co_await self->m_store->save(item, *known, fields, primary);
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;
    self->setBusy(false);
    if (error) {
        self->setActionError(VaultFailure::textOf(error));
        co_return;
    }
    emit self->saved();
}

void VaultController::remove(const QString &id)
{
    removing(QPointer<VaultController>(this), id);
}

QCoro::Task<> VaultController::removing(QPointer<VaultController> self, QString id)
{
    self->setBusy(true);
    self->setActionError({});
    std::exception_ptr error;
    try {
        co_await self->m_store->remove(id);
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        co_return;
    self->setBusy(false);
    if (error) {
        self->setActionError(VaultFailure::textOf(error));
        co_return;
    }
    if (self->m_revealedId == id)
        self->setRevealed({}, {});
    emit self->saved();
}

QString VaultController::signatureText(const QVariantList &strokes, int width, int height) const
{
    return SignatureImage::encode(SignatureImage::strokesOf(strokes), QSize(width, height));
}

void VaultController::setRevealed(const QString &id, const QString &value)
{
    if (id == m_revealedId && value == m_revealedValue)
        return;
    m_revealedValue.fill(u'\0');
    m_revealedId = id;
    m_revealedValue = value;
    emit revealedChanged();
}

void VaultController::setActionError(const QString &error)
{
    if (error == m_actionError)
        return;
    m_actionError = error;
    emit actionErrorChanged();
}

void VaultController::setBusy(bool busy)
{
    const bool was = m_busy > 0;
    m_busy += busy ? 1 : -1;
    if (was != (m_busy > 0))
        emit busyChanged();
}

void VaultController::setAsking(bool asking, const QString &reason)
{
    if (asking == m_asking && reason == m_askReason)
        return;
    m_asking = asking;
    m_askReason = reason;
    emit askingChanged();
}
