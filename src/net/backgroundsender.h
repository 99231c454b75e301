#pragma once

#include "api.h"

#include <QCoroTask>
#include <QString>

// Who carries the sends that must survive the app being killed. The transfer manager of the
// chat registers itself with its Api (setBackgroundSender); the transport then hands it every
// request that has a background id and judges the reply it returns like any other.
class BackgroundSender
{
public:
    virtual ~BackgroundSender() = default;
    // The server's reply, whatever its status; an Api::TransportError when there was none.
    virtual QCoro::Task<Api::Reply> perform(Api::Request request, QString key) = 0;
};
