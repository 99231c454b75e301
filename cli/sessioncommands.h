#pragma once

#include "invocation.h"

#include <QCoroTask>

// login, whoami, logout, delete-account, prefs.
namespace SessionCommands {

QCoro::Task<int> login(Invocation in);
QCoro::Task<int> whoami(Invocation in);
QCoro::Task<int> logout(Invocation in);
QCoro::Task<int> deleteAccount(Invocation in);
QCoro::Task<int> prefs(Invocation in);
// lang: the language in use; lang set CODE: store it here and in the profile.
QCoro::Task<int> lang(Invocation in);

// Boots the session; false (with the reason on stderr) when nobody is signed in.
QCoro::Task<bool> signedIn();

} // namespace SessionCommands
