#include "appactivity.h"

#include <QGuiApplication>

namespace AppActivity {

QMetaObject::Connection follow(QObject *context, std::function<void(bool active)> changed)
{
    auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance());
    if (!app)
        return {};
    return QObject::connect(app, &QGuiApplication::applicationStateChanged, context,
                            [changed = std::move(changed)](Qt::ApplicationState state) {
                                changed(state == Qt::ApplicationActive);
                            });
}

} // namespace AppActivity
