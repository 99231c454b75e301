#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// A line typed at the interactive chat that starts with "/": a command, not a message.
struct SlashCommand {
    enum class Kind {
        Message, // not a command: text to send (a leading "//" stands for a literal "/")
        Help,
        Quit,
        Retry,     // argument: a turn id or a prefix of one
        Discard,   // the same
        Stop,      // number: a task
        Reply,     // number: a message seq
        File,      // argument: a path
        Unknown,   // a command we do not have (argument: its name)
        Malformed, // a known command with a missing or bad argument (argument: its name)
    };
    Kind kind = Kind::Message;
    QString argument;
    qint64 number = 0;

    static SlashCommand parse(const QString &line);

    // The one id among ids that is, or begins with, given; nothing when none or several do.
    static std::optional<QString> matchID(const QStringList &ids, const QString &given);

    bool operator==(const SlashCommand &) const = default;
};
