#include "notifycontroller.h"

#include "app/pushcenter.h"
#include "app/pushstatussheet.h"
#include "app/tasknotifier.h"
#include "chat/store/chatstore.h"

#include <QQmlEngine>

using namespace Qt::StringLiterals;

namespace {
NotifyController *s_instance = nullptr;
} // namespace

NotifyController::NotifyController(Api &api, Notifier *notifier, QObject *parent)
    : QObject(parent)
    , m_center(new PushCenter(api, notifier, this))
    , m_tasks(new TaskNotifier(notifier, this))
    , m_sheet(new PushStatusSheet(api, m_center, this))
{
    if (!s_instance)
        s_instance = this;
    connect(m_sheet, &PushStatusSheet::changed, this, &NotifyController::sheetChanged);
    // The permission line follows the notifier coming and going.
    connect(m_center, &PushCenter::authorizationChanged, this, &NotifyController::sheetChanged);
    connect(m_center, &PushCenter::routed, this, &NotifyController::routed);
}

NotifyController::~NotifyController()
{
    if (s_instance == this)
        s_instance = nullptr;
}

NotifyController *NotifyController::create(QQmlEngine *, QJSEngine *)
{
    // Made by main; a screen without the app gets none.
    if (!s_instance)
        return nullptr;
    QQmlEngine::setObjectOwnership(s_instance, QQmlEngine::CppOwnership);
    return s_instance;
}

NotifyController *NotifyController::instance()
{
    return s_instance;
}

bool NotifyController::loading() const
{
    return m_sheet->loading();
}

QString NotifyController::permissionText() const
{
    return m_sheet->permissionText();
}

QString NotifyController::deviceText() const
{
    return m_sheet->deviceText();
}

QString NotifyController::serverText() const
{
    return m_sheet->serverText();
}

QStringList NotifyController::problems() const
{
    return m_sheet->problems();
}

QString NotifyController::testText() const
{
    return m_sheet->testText();
}

QString NotifyController::failure() const
{
    return m_sheet->failure();
}

bool NotifyController::loaded() const
{
    return m_sheet->loaded();
}

void NotifyController::arm()
{
    m_center->arm();
}

void NotifyController::follow(ChatStore *store)
{
    disconnect(m_frames);
    if (store)
        m_frames = connect(store, &ChatStore::frameArrived, m_tasks, &TaskNotifier::feed);
}

void NotifyController::setActive(bool active)
{
    m_tasks->setForeground(active);
}

QString NotifyController::pageFor(const PushRoute &route)
{
    switch (route.kind) {
    case PushRoute::Kind::Task:
        return u"tasks"_s;
    case PushRoute::Kind::Project:
        return u"projects"_s;
    case PushRoute::Kind::Message:
        break;
    }
    return u"chat"_s;
}

QVariantMap NotifyController::takeRoute()
{
    const std::optional<PushRoute> route = m_center->pending().take();
    if (!route)
        return {};
    return {{u"page"_s, pageFor(*route)}, {u"item"_s, route->item}};
}

void NotifyController::checkStatus()
{
    auto loading = m_sheet->load();
    Q_UNUSED(loading)
}

void NotifyController::sendTest()
{
    auto sending = m_sheet->sendTest();
    Q_UNUSED(sending)
}
