#pragma once

#include <QLoggingCategory>

// "halvenmark.net": requests, replies and the page cache.
Q_DECLARE_LOGGING_CATEGORY(lcNet)
