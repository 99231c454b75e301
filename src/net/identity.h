#pragma once

#include <QString>

// What the transport needs from whoever holds the signed-in identity. Keeps the transport
// free of the session's type; the session registers itself with its Api (setIdentity).
class Identity
{
public:
    virtual ~Identity() = default;
    // The session cookie to send; empty when signed out.
    virtual QString cookie() const = 0;
    // The signed-in user's name, which keys the page cache.
    virtual QString user() const = 0;
    // The server answered 401 to a request made with the current cookie.
    virtual void rejected() = 0;
};
