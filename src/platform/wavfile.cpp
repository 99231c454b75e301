#include "platform/wavfile.h"

#include "platform/atomicfile.h"

#include <QFile>
#include <QtEndian>

namespace {

quint32 u32(const QByteArray &b, qsizetype at)
{
    return qFromLittleEndian<quint32>(b.constData() + at);
}

quint16 u16(const QByteArray &b, qsizetype at)
{
    return qFromLittleEndian<quint16>(b.constData() + at);
}

WavFile failure(QString *error, const QString &text)
{
    if (error) {
        *error = text;
    }
    return {};
}

} // namespace

WavFile WavFile::parse(const QByteArray &bytes, QString *error)
{
    if (bytes.size() < 12 || !bytes.startsWith("RIFF") || bytes.mid(8, 4) != "WAVE") {
        return failure(error, QStringLiteral("not a WAV file"));
    }
    WavFile wav;
    bool pcm16 = false;
    qsizetype at = 12;
    while (at + 8 <= bytes.size()) {
        const QByteArray id = bytes.mid(at, 4);
        const qsizetype size = u32(bytes, at + 4);
        const qsizetype body = at + 8;
        if (id == "fmt " && size >= 16 && body + 16 <= bytes.size()) {
            const quint16 format = u16(bytes, body);
            wav.channels = u16(bytes, body + 2);
            wav.sampleRate = int(u32(bytes, body + 4));
            // 1: PCM; 0xFFFE: extensible, whose sub-format we take as PCM when 16-bit.
            pcm16 = (format == 1 || format == 0xFFFE) && u16(bytes, body + 14) == 16;
        } else if (id == "data") {
            const qsizetype frame = qsizetype(qMax(wav.channels, 1)) * 2;
            const qsizetype usable = qMin(size, bytes.size() - body) / frame * frame;
            wav.samples = bytes.mid(body, usable);
            break;
        }
        at = body + size + (size & 1);
    }
    if (!pcm16 || !wav.isValid()) {
        return failure(error, QStringLiteral("only 16-bit PCM WAV files are supported"));
    }
    return wav;
}

WavFile WavFile::read(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return failure(error, file.errorString());
    }
    return parse(file.readAll(), error);
}

QByteArray WavFile::bytes() const
{
    QByteArray out(44, '\0');
    char *h = out.data();
    const auto put32 = [&](int at, quint32 v) { qToLittleEndian(v, h + at); };
    const auto put16 = [&](int at, quint16 v) { qToLittleEndian(v, h + at); };
    memcpy(h, "RIFF", 4);
    put32(4, quint32(36 + samples.size()));
    memcpy(h + 8, "WAVEfmt ", 8);
    put32(16, 16);
    put16(20, 1);
    put16(22, quint16(channels));
    put32(24, quint32(sampleRate));
    put32(28, quint32(sampleRate * channels * 2));
    put16(32, quint16(channels * 2));
    put16(34, 16);
    memcpy(h + 36, "data", 4);
    put32(40, quint32(samples.size()));
    return out + samples;
}

bool WavFile::write(const QString &path) const
{
    return AtomicFile::write(path, bytes());
}
