#pragma once

#include "pushroute.h"

#include <QObject>

#include <optional>

// A route that arrived before the shell could show it, kept until the shell takes it.
class PendingRoute : public QObject
{
    Q_OBJECT
    // Whether a route waits to be taken.
    Q_PROPERTY(bool waiting READ waiting NOTIFY changed)

public:
    using QObject::QObject;

    bool waiting() const { return m_route.has_value(); }
    // A newer route replaces one not yet taken: the last tap is where the user wants to go.
    void hold(const PushRoute &route);
    std::optional<PushRoute> take();

signals:
    void changed();

private:
    std::optional<PushRoute> m_route;
};
