#include "launch.h"

void LaunchSteps::run() const
{
    for (const auto *step : {&armCrash, &armPush, &armHealth, &observeActivation, &armWindow}) {
        if (*step)
            (*step)();
    }
}
