#pragma once

#include <QString>

#include <exception>

// Why a vault request failed, shown as its text: an HTTP status, or no server at all.
struct VaultFailure : std::exception {
    enum class Kind { Http, Unreachable };
    Kind kind = Kind::Unreachable;
    int status = 0;

    static VaultFailure http(int status) { return {Kind::Http, status}; }
    static VaultFailure unreachable() { return {Kind::Unreachable, 0}; }

    VaultFailure(Kind kind, int status)
        : kind(kind)
        , status(status)
    {}
    // "HTTP 500", or "Cannot reach the server." in the current language.
    QString text() const;
    const char *what() const noexcept override { return "VaultFailure"; }

    // The text a screen shows for any error of a vault call ("" for a signed-out session).
    static QString textOf(const std::exception_ptr &error);
};
