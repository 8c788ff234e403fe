#pragma once

#include <chrono>
#include <thread>

/// Waits until `condition` holds; false after a long time.
template <class Condition>
bool Await(const Condition& condition) {
    using Clock = std::chrono::steady_clock;
    for (const auto until = Clock::now() + std::chrono::seconds(30); Clock::now() < until;) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
}
