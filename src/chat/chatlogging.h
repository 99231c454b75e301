#pragma once

#include <QLoggingCategory>

// The conversation's categories, declared once for every library of the chat area.
Q_DECLARE_LOGGING_CATEGORY(lcChat)     // "halvenmark.chat": the store, sync and sending
Q_DECLARE_LOGGING_CATEGORY(lcOutbox)   // "halvenmark.chat.outbox": turns on disk
Q_DECLARE_LOGGING_CATEGORY(lcModel)    // "halvenmark.chat.model": decoding records
Q_DECLARE_LOGGING_CATEGORY(lcTransfer) // "halvenmark.transfer": background uploads
Q_DECLARE_LOGGING_CATEGORY(lcVoiceNotes) // "halvenmark.chat.voice": voice messages, both ways
