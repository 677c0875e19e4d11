// Barrier from a SpinLock around the arrival count and semaphores the waiters block on.
#include "base/threads/barrier.h"

#include <thread>

namespace mirel {

namespace {

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

// Partners of a rendezvous usually arrive within a few hundred nanoseconds of each other;
// a short spin (a dozen pauses, then a few yields, as the standard library's own waits do)
// catches the release without a sleep and a wake-up in the kernel.
bool takeSoon(Semaphore& gate) {
    for (int i = 0; i < 16; ++i) {
        if (gate.trywait() == 0) return true;
        if (i < 12) {
            cpuRelax();
        } else {
            std::this_thread::yield();
        }
    }
    return false;
}

}  // namespace

Barrier::Barrier(int count)
    : lock(0), release{Semaphore(0), Semaphore(0)}, parties(count < 1 ? 1 : count) {}

Barrier::~Barrier() = default;

void Barrier::enter() {
    lock.lock(kWaitForever);
    // Waiters of alternate rounds block on alternate semaphores. With a single semaphore a
    // thread that came straight back could take a release still meant for a slow waiter of
    // the round before: it would run a round ahead, and once the threads stop entering, the
    // slow one would be left a round short and wait for ever. The next round of the same
    // parity cannot begin before every waiter of this one has left and arrived again, so by
    // then all of this round's releases have been taken.
    Semaphore& gate = release[round & 1u];
    if (++waiting == parties) {
        // The last arrival releases the others and leaves the count at 0 for the next round.
        waiting = parties - 1;
        while (waiting > 0) {
            gate.post();
            --waiting;
        }
        ++round;
        lock.unlock();
        return;
    }
    lock.unlock();
    if (!takeSoon(gate)) gate.wait();
    // Taken and dropped at once: orders this thread behind the one that released it.
    lock.lock(kWaitForever);
    lock.unlock();
}

}  // namespace mirel
