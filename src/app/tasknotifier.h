#pragma once

#include "chat/model/chatframe.h"
#include "platform/notifier.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <optional>

// What a push would have said on a phone, shown as a desktop notification: a task that
// finishes while the app is not in front. Fed with the live chat socket's frames; the
// notification's key is a PushRoute id, so a click leads where a tapped push would.
class TaskNotifier : public QObject
{
    Q_OBJECT

public:
    explicit TaskNotifier(Notifier *notifier, QObject *parent = nullptr);

    // In front the user sees the task end in the chat itself: no notification.
    void setForeground(bool foreground) { m_foreground = foreground; }
    bool foreground() const { return m_foreground; }

    void feed(const ChatFrame &frame);

    // The notification for a run's end ("final" or "error"), given what its "run_started"
    // said; nothing for any other frame.
    static std::optional<Notifier::Note> noticeFor(const ChatFrame &end, const ChatFrame &start);

private:
    QPointer<Notifier> m_notifier;
    bool m_foreground = false;
    QHash<QString, ChatFrame> m_started; // run id → its "run_started" frame, until it ends
    QStringList m_told;                  // runs already notified, newest last (bounded)
};
