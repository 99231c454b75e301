#pragma once

#include <QCoroTask>
#include <QString>

// Proof that the person at the device is its owner, asked before secrets are shown.
class OwnerAuth
{
public:
    struct Outcome {
        bool ok = false;
        QString error; // the system's description of why not; may be empty
    };

    virtual ~OwnerAuth() = default;
    // Why the owner cannot be asked on this device; empty when they can.
    virtual QString unavailable() const = 0;
    // Asks the owner, showing `reason` in the prompt.
    virtual QCoro::Task<Outcome> evaluate(QString reason) = 0;
};
