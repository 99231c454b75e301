#include "reachability.h"

#include <QNetworkInformation>

namespace {

class SystemReachability : public Reachability
{
public:
    explicit SystemReachability(QObject *parent)
        : Reachability(parent)
    {
        if (!QNetworkInformation::instance())
            QNetworkInformation::loadDefaultBackend();
        m_info = QNetworkInformation::instance();
        if (!m_info || !m_info->supports(QNetworkInformation::Feature::Reachability))
            return;
        connect(m_info, &QNetworkInformation::reachabilityChanged, this, [this] {
            const bool now = available();
            if (now != m_last) {
                m_last = now;
                emit availableChanged(now);
            }
        });
        m_last = available();
    }

    bool available() const override
    {
        if (!m_info || !m_info->supports(QNetworkInformation::Feature::Reachability))
            return true;
        const auto r = m_info->reachability();
        // Unknown is what backends report before they know: let requests decide.
        return r != QNetworkInformation::Reachability::Disconnected;
    }

private:
    QNetworkInformation *m_info = nullptr;
    bool m_last = true;
};

} // namespace

Reachability *Reachability::platform(QObject *parent)
{
    return new SystemReachability(parent);
}
