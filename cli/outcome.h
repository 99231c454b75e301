#pragma once

#include <QString>

#include <exception>
#include <optional>

class Api;

// Exit statuses: a contract with scripts that drive the client.
enum ExitCode {
    Done = 0,
    Refused = 1,     // the server said no (its reason on stderr)
    Usage = 2,
    SignedOut = 3,   // not signed in, or the session ended
    Unreachable = 4, // the server cannot be reached and there is no copy to show
    BadAnswer = 5,   // the server answered something the client cannot use (shape, redirect)
};

namespace Outcome {

// Says on stderr why a command failed (naming api's server when it cannot be reached) and
// gives its exit status.
int report(const std::exception_ptr &error, const Api &api);

// When error is a reply the client could not use (not a refusal, not an unreachable server):
// says so on stderr and gives BadAnswer; otherwise nothing is said and the result is empty.
std::optional<int> badAnswer(const std::exception_ptr &error);

// "Cannot reach https://host: connection refused": api's server and the cause.
QString unreachableText(const std::exception_ptr &error, const Api &api);

// "You are not signed in." with the way in; exit status SignedOut.
int notSignedIn();

} // namespace Outcome
