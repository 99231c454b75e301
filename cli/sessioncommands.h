#pragma once

#include "invocation.h"
#include "platform/ports.h"

#include <QCoroTask>

// login, whoami, logout, delete-account, prefs.
namespace SessionCommands {

QCoro::Task<int> login(Invocation in, const Ports &ports);
QCoro::Task<int> whoami(Invocation in, const Ports &ports);
QCoro::Task<int> logout(Invocation in, const Ports &ports);
QCoro::Task<int> deleteAccount(Invocation in, const Ports &ports);
QCoro::Task<int> prefs(Invocation in, const Ports &ports);
// lang: the language in use; lang set CODE: store it here and in the profile.
QCoro::Task<int> lang(Invocation in, const Ports &ports);

// Boots the session; false (with the reason on stderr) when nobody is signed in.
QCoro::Task<bool> signedIn();

} // namespace SessionCommands
