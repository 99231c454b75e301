#pragma once

#include <QObject>

// The live coaching engine. Only its lifetime matters to the rest of the app so far: it is
// closed whenever the signed-in identity changes, so no audio outlives the identity.
class CoachEngine : public QObject
{
    Q_OBJECT
    // Whether a coaching session is running.
    Q_PROPERTY(bool active READ active NOTIFY activeChanged)

public:
    using QObject::QObject;

    bool active() const { return m_active; }
    void start();
    void close();

    // How many times close() ended or would have ended a session (tests watch identity changes).
    int closes() const { return m_closes; }

signals:
    void activeChanged();

private:
    bool m_active = false;
    int m_closes = 0;
};
