#include "platformlog.h"

Q_LOGGING_CATEGORY(lcPlatform, "halvenmark.platform", QtWarningMsg)
Q_LOGGING_CATEGORY(lcNotify, "halvenmark.platform.notify", QtWarningMsg)
Q_LOGGING_CATEGORY(lcAudio, "halvenmark.audio", QtWarningMsg)
