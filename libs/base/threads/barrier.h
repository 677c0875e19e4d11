// Barrier: a reusable rendezvous of a fixed number of threads.
//
// Each of `parties` threads calls enter(); all of them return once the last has arrived, and
// the barrier is ready for the next round at once. Rounds do not overlap: a thread that comes
// straight back for the next round waits for that round, even while slower threads are still
// on their way out of the one before.
#pragma once

#include <cstdint>

#include "base/mirel_export.h"
#include "base/threads/semaphore.h"
#include "base/threads/spinlock.h"

namespace mirel {

class MIREL_EXPORT Barrier {
public:
    // A barrier of `parties` threads; fewer than one counts as one (enter() never blocks).
    explicit Barrier(int parties);
    ~Barrier();

    // Blocks until `parties` threads have entered in this round. Any thread may call it.
    void enter();

    Barrier(const Barrier&) = delete;
    Barrier& operator=(const Barrier&) = delete;

private:
    SpinLock lock;               // guards `waiting`; never held while blocked
    Semaphore release[2];        // the waiters of a round block here, by round parity
    std::int32_t parties;
    std::int32_t waiting = 0;    // arrivals of the current round
    std::uint32_t round = 0;     // rounds completed; guarded by `lock`
};

}  // namespace mirel
