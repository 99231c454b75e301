#pragma once

#include <QLoggingCategory>

// The app area's categories, declared once.
Q_DECLARE_LOGGING_CATEGORY(lcApp)   // "halvenmark.app": reports waiting for the server
Q_DECLARE_LOGGING_CATEGORY(lcCrash) // "halvenmark.app.crash": capture and vitals
Q_DECLARE_LOGGING_CATEGORY(lcPush)  // "halvenmark.app.push": registration and routes
