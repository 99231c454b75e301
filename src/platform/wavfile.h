#pragma once

#include <QByteArray>
#include <QString>

// 16-bit PCM WAV files: the terminal's --input/--output and the fake sound devices.
struct WavFile {
    int sampleRate = 0;
    int channels = 0;
    QByteArray samples; // interleaved signed 16-bit little-endian

    bool isValid() const { return sampleRate > 0 && channels > 0; }

    // An invalid value (with error set) for anything but 16-bit PCM.
    static WavFile read(const QString &path, QString *error = nullptr);
    static WavFile parse(const QByteArray &bytes, QString *error = nullptr);
    QByteArray bytes() const;
    bool write(const QString &path) const;
};
