#include "applog.h"

Q_LOGGING_CATEGORY(lcApp, "halvenmark.app", QtWarningMsg)
Q_LOGGING_CATEGORY(lcCrash, "halvenmark.app.crash", QtWarningMsg)
Q_LOGGING_CATEGORY(lcPush, "halvenmark.app.push", QtWarningMsg)
