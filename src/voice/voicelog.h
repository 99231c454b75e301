#pragma once

#include <QLoggingCategory>

// The live call's categories, declared once for the area.
Q_DECLARE_LOGGING_CATEGORY(lcCall)      // "halvenmark.voice": the call and its link
Q_DECLARE_LOGGING_CATEGORY(lcCallAudio) // "halvenmark.voice.audio": capture and playback
