#pragma once

#include <QLoggingCategory>

// "halvenmark.platform": the data folder, files and the keychain.
Q_DECLARE_LOGGING_CATEGORY(lcPlatform)
// "halvenmark.platform.notify": desktop notifications over D-Bus.
Q_DECLARE_LOGGING_CATEGORY(lcNotify)
// "halvenmark.audio": the sound devices.
Q_DECLARE_LOGGING_CATEGORY(lcAudio)
