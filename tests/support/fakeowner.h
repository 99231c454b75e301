#pragma once

#include "platform/ownerauth.h"

#include <QCoroTask>

// The owner's password: accepted or refused as the test says, or unavailable for a reason.
class FakeOwner : public OwnerAuth
{
public:
    QString missing;
    bool accept = true;
    int asked = 0;

    QString unavailable() const override { return missing; }
    QCoro::Task<Outcome> evaluate(QString) override
    {
        ++asked;
        co_return Outcome{accept, accept ? QString() : QStringLiteral("Wrong password.")};
    }
};
