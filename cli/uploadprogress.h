#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QString>

#include <functional>

// Upload progress on stderr: the file's name, its size, the rate and the time left. On a
// terminal one line redrawn in place; into a pipe nothing (a log file is no place for it).
class UploadProgress
{
public:
    // names: the transfer key's file id → the name shown.
    using Names = std::function<QString(const QString &fileID)>;

    explicit UploadProgress(Names names);

    // "photo.jpg  1.2 MB of 4.0 MB  350 kB/s  9 s left"; the rate and time once a quarter
    // second has passed.
    static QString line(const QString &name, qint64 sent, qint64 total, double seconds);
    static QString size(qint64 bytes);

private:
    void report(const QString &key, qint64 sent, qint64 total);

    Names m_names;
    QHash<QString, QElapsedTimer> m_started;
};
