#pragma once

#include <QCoroTask>
#include <QEventLoop>
#include <QTimer>

#include <exception>
#include <optional>
#include <stdexcept>

// Runs a task to its end in a nested event loop, rethrowing what it threw. A watchdog ends
// a task that never finishes, so a hang fails the test instead of stalling the suite.
namespace Sync {

template<class T>
T run(QCoro::Task<T> task, int watchdogMs = 30'000)
{
    std::optional<std::conditional_t<std::is_void_v<T>, bool, T>> result;
    std::exception_ptr error;
    bool done = false;
    QEventLoop loop;
    auto body = [&]() -> QCoro::Task<> {
        try {
            if constexpr (std::is_void_v<T>) {
                co_await task;
                result = true;
            } else {
                result = co_await task;
            }
        } catch (...) {
            error = std::current_exception();
        }
        done = true;
        loop.quit();
    };
    auto running = body();
    if (!done) {
        QTimer::singleShot(watchdogMs, &loop, &QEventLoop::quit);
        loop.exec();
    }
    if (!done)
        throw std::runtime_error("task did not finish before the watchdog");
    if (error)
        std::rethrow_exception(error);
    if constexpr (!std::is_void_v<T>)
        return std::move(*result);
}

} // namespace Sync
