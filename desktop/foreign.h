#pragma once

#include "chat/store/chatstore.h"
#include "net/feedcore.h"
#include "session/session.h"
#include "text/language.h"

#include <QtQml/qqml.h>

// Core stores made known to QML as they are: screens bind to their properties directly.
struct SessionForeign {
    Q_GADGET
    QML_FOREIGN(Session)
    QML_NAMED_ELEMENT(Session)
    QML_UNCREATABLE("owned by the app")
};

struct ChatStoreForeign {
    Q_GADGET
    QML_FOREIGN(ChatStore)
    QML_NAMED_ELEMENT(ChatStore)
    QML_UNCREATABLE("owned by the app")
};

struct FeedCoreForeign {
    Q_GADGET
    QML_FOREIGN(FeedCore)
    QML_NAMED_ELEMENT(FeedCore)
    QML_UNCREATABLE("made by PageFeed")
};

struct LanguageForeign {
    Q_GADGET
    QML_FOREIGN(Language)
    QML_NAMED_ELEMENT(Language)
    QML_UNCREATABLE("owned by the app")
};
