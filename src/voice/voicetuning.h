#pragma once

#include <QObject>
#include <QString>

// The user's interruption threshold, kept per account in the settings.
class VoiceTuning : public QObject
{
    Q_OBJECT
    // Interruption threshold in dBFS, a whole number in [-50, -20].
    Q_PROPERTY(double threshold READ threshold WRITE set NOTIFY thresholdChanged)
    // The account whose threshold is loaded; empty before one signs in.
    Q_PROPERTY(QString account READ account NOTIFY accountChanged)

public:
    static constexpr double defaultThreshold = -33;

    explicit VoiceTuning(QObject *parent = nullptr);

    // The process's instance; made on first use and never destroyed (no destructor runs
    // after the event loop is gone).
    static VoiceTuning &shared();

    double threshold() const { return m_threshold; }
    QString account() const { return m_account; }

    // Rounds to a whole dB, clamps, stores under the active account.
    void set(double value);
    // Loads the stored threshold of a newly signed-in account.
    void activate(const QString &account);

    static QString keyFor(const QString &account);
    static double normalised(double value);

signals:
    void thresholdChanged();
    void accountChanged();

private:
    double m_threshold = defaultThreshold;
    QString m_account;
};
