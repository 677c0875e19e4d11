// Helpers shared by the tests: starting threads together, probing a lock from another
// thread, and measuring time.
#pragma once

#include <chrono>
#include <functional>

namespace mirel {
class SpinLock;
}

namespace mirel::testing {

// Asks from another thread whether `lock` can be taken right now (and gives it back):
// true when some thread holds it.
bool takenElsewhere(SpinLock& lock);

// Runs `body(index)` on `threads` threads released together, and waits for them all.
void runTogether(int threads, const std::function<void(int)>& body);

// Milliseconds elapsed on the monotonic clock since construction.
class Stopwatch {
public:
    Stopwatch() : mStart(std::chrono::steady_clock::now()) {}
    double elapsedMs() const {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - mStart)
            .count();
    }

private:
    std::chrono::steady_clock::time_point mStart;
};

}  // namespace mirel::testing
