#pragma once

#include <QString>

#include <exception>

namespace FailureText {

// The one line a screen shows for a failed server call, in the current language:
// "" for Unauthorized (the session handles it), "Cannot reach the server." when the
// network or the server is down, the shape of a reply that did not decode, else the
// server's own reason.
QString of(const std::exception_ptr &error);

// Whether the failure means the server could not be reached (a copy may still help).
bool isUnreachable(const std::exception_ptr &error);

} // namespace FailureText
