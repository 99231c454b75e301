#include "notifier.h"

#include "dbusnotifier.h"

Notifier *Notifier::platform(QObject *parent)
{
    return new DBusNotifier(parent);
}
