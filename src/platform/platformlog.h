#pragma once

#include <QLoggingCategory>

// "halvenmark.platform": the data folder, files and the keychain.
Q_DECLARE_LOGGING_CATEGORY(lcPlatform)
