#pragma once

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
    bool force = false;
    QString voice;   // --voice FILE.wav (chat send)
    QString seconds; // --seconds S (chat record), checked there
    QString input;   // --input FILE.wav (chat record): instead of the microphone          // --force (logout with turns not yet sent)
};
