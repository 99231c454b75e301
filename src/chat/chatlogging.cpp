#include "chatlogging.h"

Q_LOGGING_CATEGORY(lcChat, "halvenmark.chat", QtWarningMsg)
Q_LOGGING_CATEGORY(lcOutbox, "halvenmark.chat.outbox", QtWarningMsg)
Q_LOGGING_CATEGORY(lcModel, "halvenmark.chat.model", QtWarningMsg)
Q_LOGGING_CATEGORY(lcTransfer, "halvenmark.transfer", QtWarningMsg)
Q_LOGGING_CATEGORY(lcVoiceNotes, "halvenmark.chat.voice", QtWarningMsg)
