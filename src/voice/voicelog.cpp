#include "voicelog.h"

Q_LOGGING_CATEGORY(lcCall, "halvenmark.voice", QtWarningMsg)
Q_LOGGING_CATEGORY(lcCallAudio, "halvenmark.voice.audio", QtWarningMsg)
