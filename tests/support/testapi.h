#pragma once

#include "net/api.h"
#include "net/networkmanager.h"
#include "net/serveraddress.h"

#include <QNetworkAccessManager>

#include <memory>

// A test's own transport, made on first use: by then the test has pointed HALVENMARK_SERVER
// at its service. Converts to Api & for the constructors that take one.
class TestApi
{
public:
    Api &get()
    {
        if (!m_api) {
            m_manager.reset(Network::create(nullptr));
            m_api = std::make_unique<Api>(m_manager.get(), ServerAddress::configured());
        }
        return *m_api;
    }
    operator Api &() { return get(); }

private:
    std::unique_ptr<QNetworkAccessManager> m_manager;
    std::unique_ptr<Api> m_api;
};
