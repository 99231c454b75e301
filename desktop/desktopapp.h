#pragma once

#include <QString>

class QQmlEngine;

// What the app and its tests share when bringing up QML: the style, the font and the refusing
// network for an engine.
namespace DesktopApp {

// Before the QGuiApplication exists: the Controls style.
void prepareStyle();
// The engine's guard against remote resources.
void guard(QQmlEngine &engine);

inline const QString mainQml = QStringLiteral("qrc:/Halvenmark/Desktop/Main.qml");

} // namespace DesktopApp
