#include "platformlog.h"

Q_LOGGING_CATEGORY(lcPlatform, "halvenmark.platform", QtWarningMsg)
