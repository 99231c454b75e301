#include "reachability.h"

#include <QMetaMethod>
#include <QNetworkInformation>

namespace {

class SystemReachability : public Reachability
{
public:
    using Reachability::Reachability;

    bool available() const override
    {
        const_cast<SystemReachability *>(this)->attach();
        if (!m_info || !m_info->supports(QNetworkInformation::Feature::Reachability))
            return true;
        const auto r = m_info->reachability();
        // Unknown is what backends report before they know: let requests decide.
        return r != QNetworkInformation::Reachability::Disconnected;
    }

protected:
    void connectNotify(const QMetaMethod &signal) override
    {
        if (signal == QMetaMethod::fromSignal(&Reachability::availableChanged))
            attach();
    }

private:
    // The backend loads on first use: commands that never look at the network pay nothing.
    void attach()
    {
        if (m_attached)
            return;
        m_attached = true;
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

    QNetworkInformation *m_info = nullptr;
    bool m_attached = false;
    bool m_last = true;
};

} // namespace

Reachability *Reachability::platform(QObject *parent)
{
    return new SystemReachability(parent);
}
