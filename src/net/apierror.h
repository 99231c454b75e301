#pragma once

#include <QByteArray>
#include <QNetworkReply>
#include <QString>

#include <exception>

// The failures the transport throws; the transport names them Api::Failed and so on.
namespace ApiError {

// A server call that got a reply other than 2xx (status 0: no HTTP reply at all).
struct Failed : std::exception {
    int status = 0;
    QString reason; // the server's human text, may be empty
    QString code;   // the server's machine code, may be empty

    Failed(int status, QString reason = {}, QString code = {});

    // What the user is shown: the reason, else "HTTP <status>".
    QString description() const;
    // The server or its front proxy is down, as opposed to the request being wrong.
    bool unreachable() const;
    const char *what() const noexcept override { return "Api::Failed"; }
};

// No session cookie to send, or the server answered 401.
struct Unauthorized : std::exception {
    const char *what() const noexcept override { return "Api::Unauthorized"; }
};

// The network itself failed (no route, refused, timed out, dropped): passed through unchanged.
struct TransportError : std::exception {
    QNetworkReply::NetworkError code = QNetworkReply::UnknownNetworkError;
    QString text;

    TransportError(QNetworkReply::NetworkError code, QString text);
    // Worth one more try: the request timed out or the connection dropped under it.
    bool transient() const;
    const char *what() const noexcept override { return "Api::TransportError"; }
};

// The Failed for a non-2xx reply, reading the server's {"error","detail"} body when there is one.
Failed failure(int status, const QByteArray &body);

} // namespace ApiError
