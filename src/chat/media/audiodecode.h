#pragma once

#include <QString>
#include <QStringList>

// Decodes voice files (Ogg/Opus, M4A/AAC, MP3, WAV — whatever FFmpeg reads) into one 16-bit
// PCM WAV file. The first source sets the rate and channels (at most two); later ones are
// converted to match, so the parts of one message become one recording.
namespace AudioDecode {

struct Result {
    bool ok = false;
    QString error; // what went wrong, for the person: which file and why
    double seconds = 0;
    int rate = 0;
    int channels = 0;
};

Result toWav(const QStringList &sources, const QString &target);

} // namespace AudioDecode
