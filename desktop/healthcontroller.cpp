#include "healthcontroller.h"

#include "features/health/healthactivity.h"
#include "features/health/healthexportstore.h"
#include "features/health/healthsync.h"
#include "features/health/healthview.h"
#include "platform/appdata.h"

#include <QDateTime>
#include <QFileInfo>
#include <QPointer>
#include <QQmlEngine>

using namespace Qt::StringLiterals;

namespace {

HealthController *s_instance = nullptr;

QVariant number(const std::optional<double> &value)
{
    return value ? QVariant(*value) : QVariant();
}

} // namespace

HealthController::HealthController(Api &api, CurrentUser currentUser, const Clock &clock,
                                   QObject *parent)
    : QObject(parent)
    , m_sync(new HealthSync(api, nullptr, std::move(currentUser), clock, this))
{
    if (!s_instance)
        s_instance = this;
    connect(m_sync, &HealthSync::viewChanged, this, &HealthController::viewChanged);
    connect(m_sync, &HealthSync::syncingChanged, this, &HealthController::syncingChanged);
    connect(m_sync, &HealthSync::failureChanged, this, &HealthController::failureChanged);
    connect(m_sync, &HealthSync::linkedChanged, this, [this] {
        // Unlinked (here, or by another account signing in): the export is no longer ours.
        if (m_sync->linked() && !m_exportPath.isEmpty()) {
            AppData::setSetting(QString::fromLatin1(exportKey), m_exportPath);
        } else if (!m_sync->linked()) {
            AppData::removeSetting(QString::fromLatin1(exportKey));
            m_sync->setStore(nullptr);
            m_store.reset();
            m_exportPath.clear();
        }
        emit linkedChanged();
    });
}

HealthController::~HealthController()
{
    // The sync must let go of the store before the store goes.
    m_sync->setStore(nullptr);
    if (s_instance == this)
        s_instance = nullptr;
}

HealthController *HealthController::create(QQmlEngine *, QJSEngine *)
{
    // Made by main; a screen without the app gets none.
    if (!s_instance)
        return nullptr;
    QQmlEngine::setObjectOwnership(s_instance, QQmlEngine::CppOwnership);
    return s_instance;
}

HealthController *HealthController::instance()
{
    return s_instance;
}

QVariantMap HealthController::view() const
{
    return m_sync->viewMap();
}

QVariantList HealthController::workouts() const
{
    QVariantList rows;
    if (!m_sync->view())
        return rows;
    for (const HealthView::Workout &w : m_sync->view()->workouts) {
        const QDateTime start = QDateTime::fromString(w.startAt, Qt::ISODate);
        rows << QVariantMap{
            {u"uuid"_s, w.uuid},
            {u"title"_s, HealthActivity::title(w.activity)},
            {u"symbol"_s, HealthActivity::symbol(w.activity)},
            {u"start"_s, start.isValid() ? QVariant(start.toLocalTime()) : QVariant(w.startAt)},
            {u"minutes"_s, number(w.minutes)},
            {u"kcal"_s, number(w.kcal)},
            {u"km"_s,
             w.distanceM && *w.distanceM > 0 ? QVariant(*w.distanceM / 1000.0) : QVariant()},
            {u"avgHr"_s, number(w.avgHr)},
            {u"source"_s, w.source},
        };
    }
    return rows;
}

QVariantList HealthController::activities() const
{
    QVariantList rows;
    if (!m_sync->view())
        return rows;
    for (const HealthView::Activity &a : m_sync->view()->byActivity)
        rows << QVariantMap{{u"title"_s, HealthActivity::title(a.activity)},
                            {u"count"_s, number(a.count)},
                            {u"minutes"_s, number(a.minutes)},
                            {u"kcal"_s, number(a.kcal)}};
    return rows;
}

bool HealthController::syncing() const
{
    return m_sync->syncing();
}

QString HealthController::failure() const
{
    return m_sync->failure();
}

bool HealthController::linked() const
{
    return m_sync->linked();
}

QString HealthController::exportName() const
{
    return m_exportPath.isEmpty() ? QString() : QFileInfo(m_exportPath).fileName();
}

void HealthController::arm()
{
    const QString path = AppData::setting(QString::fromLatin1(exportKey)).toString();
    if (!path.isEmpty() && QFileInfo(path).isFile())
        useExport(path);
    m_sync->arm();
}

QString HealthController::unavailableText() const
{
    return HealthSync::unavailableText();
}

void HealthController::refresh()
{
    auto refreshing = m_sync->refresh();
    Q_UNUSED(refreshing)
}

void HealthController::useExport(const QString &path)
{
    auto store = std::make_unique<HealthExportStore>(path);
    m_sync->setStore(store.get());
    m_store = std::move(store);
    m_exportPath = path;
    emit linkedChanged();
}

void HealthController::linkExport(const QUrl &file)
{
    const QString path = file.isLocalFile() ? file.toLocalFile() : file.toString();
    if (path.isEmpty() || m_sync->syncing())
        return;
    useExport(path);
    if (m_sync->linked())
        AppData::setSetting(QString::fromLatin1(exportKey), path);
    // Linked already (an earlier export of this account): only what changed goes up.
    auto running = m_sync->linked() ? m_sync->sync() : m_sync->connect();
    Q_UNUSED(running)
}

void HealthController::syncNow()
{
    auto running = m_sync->sync();
    Q_UNUSED(running)
}

void HealthController::disconnectHealth(bool forget)
{
    auto running = m_sync->disconnect(forget);
    Q_UNUSED(running)
}
