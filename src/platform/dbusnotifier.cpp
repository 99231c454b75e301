#include "dbusnotifier.h"
#include "platform/platformlog.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QLoggingCategory>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

const QString service = u"org.freedesktop.Notifications"_s;
const QString path = u"/org/freedesktop/Notifications"_s;
const QString interface = u"org.freedesktop.Notifications"_s;

} // namespace

DBusNotifier::DBusNotifier(QObject *parent)
    : Notifier(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    bus.connect(service, path, interface, u"ActionInvoked"_s, this, SLOT(onAction(uint, QString)));
    bus.connect(service, path, interface, u"NotificationClosed"_s, this,
                SLOT(onClosed(uint, uint)));
}

bool DBusNotifier::available() const
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return false;
    // Daemons are usually started on demand, so an activatable name counts too.
    if (bus.interface()->isServiceRegistered(service))
        return true;
    const QDBusReply<QStringList> activatable = bus.interface()->activatableServiceNames();
    return activatable.isValid() && activatable.value().contains(service);
}

void DBusNotifier::show(const Note &note)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, u"Notify"_s);
    // "default" is the action of a click on the notification's body.
    const QStringList actions = {u"default"_s, note.title};
    call << QCoreApplication::applicationName() << uint(0) << QString() << note.title << note.body
         << actions << QVariantMap() << int(-1);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    const QString key = note.key;
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, key](QDBusPendingCallWatcher *done) {
                const QDBusPendingReply<uint> reply = *done;
                if (reply.isError())
                    qCWarning(lcNotify) << "notification not shown:" << reply.error().message();
                else
                    m_keys.insert(reply.value(), key);
                done->deleteLater();
            });
}

void DBusNotifier::onAction(uint id, const QString &action)
{
    const auto found = m_keys.constFind(id);
    if (found == m_keys.constEnd() || action != u"default")
        return;
    emit clicked(found.value());
}

void DBusNotifier::onClosed(uint id, uint)
{
    m_keys.remove(id);
}
