#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <functional>

class Sleeper;

// Turns the byte counts of running uploads into the progress text shown under a pending turn,
// keyed like the transfers. Small uploads (under 32 KiB) finish before a meter is worth
// showing and are not metered. Texts reach the screen at most every 0.2 s per key: a report
// that comes sooner is published 0.3 s later, newest text first. Main thread only.
class UploadMeter : public QObject
{
    Q_OBJECT

public:
    // Uploads smaller than this are not metered (the terminal's bar follows the same rule).
    static constexpr qint64 smallest = 32'768;

    // Seconds on any steady scale; the process's monotonic clock when empty.
    using Clock = std::function<double()>;

    explicit UploadMeter(Sleeper &sleeper, Clock now = {}, QObject *parent = nullptr);
    ~UploadMeter() override;

    void report(const QString &key, qint64 sent, qint64 total);
    // The key's sent bytes changed within the last withinSeconds.
    bool moving(const QString &key, double withinSeconds) const;
    // Forgets the key; a text already shown is taken back with an empty one.
    void clear(const QString &key);
    // The newest progress text ("42%"); empty when the key is not metered.
    QString text(const QString &key) const;

    // Whole percent, rounded down, so 100% means every byte went out.
    static QString format(qint64 sent, qint64 total);

signals:
    // A new text for the key; empty when its meter was cleared.
    void changed(const QString &key, const QString &text);

private:
    struct Reading {
        qint64 sent = -1;
        qint64 total = 0;
        double moved = 0;
        QString text;
        QString published;
        double shown = -1; // when a text was last published; -1 never
        quint64 owed = 0;  // the scheduled publication, 0 when none
    };

    void publish(const QString &key, Reading &reading);

    Sleeper *m_sleeper;
    Clock m_now;
    QHash<QString, Reading> m_readings;
    quint64 m_schedule = 0;
};
