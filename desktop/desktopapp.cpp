#include "desktopapp.h"

#include "requestguard.h"

#include <QQmlEngine>
#include <QQuickStyle>

namespace DesktopApp {

void prepareStyle()
{
    if (qEnvironmentVariableIsEmpty("QT_QUICK_CONTROLS_STYLE"))
        QQuickStyle::setStyle(QStringLiteral("Basic"));
}

void guard(QQmlEngine &engine)
{
    static RequestGuard factory;
    engine.setNetworkAccessManagerFactory(&factory);
}

} // namespace DesktopApp
