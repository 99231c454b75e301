#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

// One run of the terminal client, as parsed from its command line.
struct Invocation {
    QString command;
    QStringList args; // positional words after the command
    bool json = false;
    QString user;
    QString token;
    double every = 0;
    std::optional<int> project; // --project N: that project's conversation
    QStringList files;           // --file PATH, repeatable
    std::optional<qint64> replyTo; // --reply-to SEQ
    double wait = 0;             // --wait SECONDS
    QString output;              // --output FILE
    double rate = 0;             // --rate R (chat play); 0 when not given
    QString title;               // --title T (vault add)
    QStringList fields;          // --field KEY=VALUE, repeatable (vault add)
    bool primary = false;        // --primary (vault add)
    bool forget = false;         // --forget (health disconnect)
    bool force = false;          // --yes, or --force (logout with turns not yet sent)
    bool edit = false;           // --edit (chat send: the text from $EDITOR)
    std::optional<int> limit;    // --limit N (chat log)
    std::optional<qint64> since; // --since SEQ (chat log)
    QString input;               // --input FILE.wav (call, chat record): instead of the microphone
    double seconds = 0;          // --seconds S (call, chat record); 0 when not given
    QString voice;               // --voice: call prefs' voice, or chat send's WAV recording
    QString language;            // --language, --provider (call prefs)
    QString provider;
    // Every option given, by name without dashes, with its values (none for a flag): what a
    // command reads that has no field of its own (--seconds, --input, --voice…).
    QHash<QString, QStringList> given;

    bool isSet(const QString &name) const { return given.contains(name); }
    QString value(const QString &name) const { return given.value(name).value(0); }
};
