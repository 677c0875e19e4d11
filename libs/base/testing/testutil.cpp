#include "base/testing/testutil.h"

#include "base/threads/spinlock.h"

#include <latch>
#include <thread>
#include <vector>

namespace mirel::testing {

void runTogether(int threads, const std::function<void(int)>& body) {
    std::latch start(threads);
    std::vector<std::thread> pool;
    pool.reserve(threads);
    for (int i = 0; i < threads; ++i) {
        pool.emplace_back([&, i] {
            start.arrive_and_wait();
            body(i);
        });
    }
    for (auto& t : pool) t.join();
}

bool takenElsewhere(SpinLock& lock) {
    bool got = false;
    std::thread t([&] {
        got = lock.trylock() == 0;
        if (got) lock.unlock();
    });
    t.join();
    return !got;
}

}  // namespace mirel::testing
