#pragma once

#include <QString>
#include <QVariantMap>

#include <optional>

// Where a tapped notification leads: a chat message, a task or a project.
struct PushRoute {
    enum class Kind { Message, Task, Project };

    Kind kind = Kind::Message;
    QString item; // the message's seq, the task's number or the project's id

    // "message:12", "task:5", "project:3".
    QString id() const;

    // An id as above; nothing for another prefix or an empty or malformed item.
    static std::optional<PushRoute> parse(const QString &id);
    // A notification's user info: "route" (an id as above), else "task_no", "project_id"
    // or "seq" (text or number), in that order.
    static std::optional<PushRoute> from(const QVariantMap &userInfo);

    bool operator==(const PushRoute &) const = default;
};
