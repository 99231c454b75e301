#pragma once

#include <functional>

// The start-up steps in their fixed order. Crash capture, push registration and the health
// observer are seams that their own parts of the app fill; an empty step is skipped.
struct LaunchSteps {
    std::function<void()> armCrash;
    std::function<void()> armPush;
    std::function<void()> armHealth;
    std::function<void()> observeActivation;
    std::function<void()> armWindow;

    // Each step once, in order.
    void run() const;
};
