#include "voice/voicetuning.h"

#include "platform/appdata.h"

#include <algorithm>
#include <cmath>

namespace {

const QString legacyKey = QStringLiteral("voice.interruptionThresholdDB");

} // namespace

VoiceTuning::VoiceTuning(QObject *parent)
    : QObject(parent)
{}

VoiceTuning &VoiceTuning::shared()
{
    static auto *instance = new VoiceTuning;
    return *instance;
}

QString VoiceTuning::keyFor(const QString &account)
{
    return QStringLiteral("voice.interruptionThresholdDB.account.") + account;
}

double VoiceTuning::normalised(double value)
{
    if (!std::isfinite(value)) {
        return defaultThreshold;
    }
    return std::clamp(std::round(value), -50.0, -20.0);
}

void VoiceTuning::set(double value)
{
    const double next = normalised(value);
    if (!m_account.isEmpty()) {
        AppData::setSetting(keyFor(m_account), next);
    }
    if (next != m_threshold) {
        m_threshold = next;
        emit thresholdChanged();
    }
}

void VoiceTuning::activate(const QString &account)
{
    if (account.isEmpty() || account == m_account) {
        return;
    }
    m_account = account;
    emit accountChanged();
    QVariant stored = AppData::setting(keyFor(account));
    // The owner's threshold predates per-account keys.
    if (!stored.isValid() && account == QLatin1String("owner")) {
        stored = AppData::setting(legacyKey);
    }
    bool ok = false;
    const double value = stored.toDouble(&ok);
    const double next = ok ? normalised(value) : defaultThreshold;
    if (next != m_threshold) {
        m_threshold = next;
        emit thresholdChanged();
    }
}
