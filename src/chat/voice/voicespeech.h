#pragma once

#include <QJsonValue>
#include <QList>
#include <QString>

// The server's answer to "make the voice of this message": its state and the parts made so far.
struct VoiceSpeech
{
    struct Part {
        int index = 0;
        double seconds = 0;
        bool operator==(const Part &) const = default;
    };

    QString status;   // "pending" while speech is being made, "done"
    QString voiceURL; // the whole file, when there is one
    int total = 0;    // parts the voice will have, when the server knows
    QList<Part> parts; // by index, no repeats

    bool done() const { return status == QLatin1String("done"); }

    // Lenient: odd values read as absent, parts without a usable index are skipped.
    // Throws DecodeError only when the value is not an object.
    static VoiceSpeech fromJson(const QJsonValue &value);
};
