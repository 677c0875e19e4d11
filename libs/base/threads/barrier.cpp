// Barrier from a SpinLock around the arrival count and semaphores the waiters block on.
#include "base/threads/barrier.h"

namespace mirel {

namespace {
constexpr unsigned int kWaitForever = 0xFFFFFFFFu;
}

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
    gate.wait();
    // Taken and dropped at once: orders this thread behind the one that released it.
    lock.lock(kWaitForever);
    lock.unlock();
}

}  // namespace mirel
