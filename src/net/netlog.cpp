#include "netlog.h"

Q_LOGGING_CATEGORY(lcNet, "halvenmark.net", QtWarningMsg)
