#pragma once

#include <QMetaObject>
#include <QObject>

#include <functional>

// Whether the app is the one in front, for what must not outlive a switch away from it
// (the unlocked vault).
namespace AppActivity {

// Calls `changed` whenever the application becomes active or stops being active, for as
// long as `context` lives. Needs a QGuiApplication.
QMetaObject::Connection follow(QObject *context, std::function<void(bool active)> changed);

} // namespace AppActivity
