// Semaphore: a counting semaphore with a blocking wait, an immediate try and a bounded
// polling try.
//
// Use it to hand units of work or wake-ups between threads; it holds no lock of its own and
// every operation may be called from any thread. The count runs from 0 to 0x7FFFFFFF.
// Operations return 0 on success and -1 on failure; nothing throws.
#pragma once

#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT Semaphore {
public:
    // Starts with `initial` units. An initial count outside 0..0x7FFFFFFF makes a semaphore
    // that refuses every operation with -1.
    explicit Semaphore(long initial);
    // Must not be destroyed while a thread waits on it.
    ~Semaphore();

    // Takes one unit, waiting without limit for one to be posted.
    int wait();
    // Takes one unit if one is there right now; -1 otherwise.
    int trywait();
    // Polls: up to `tries` immediate attempts, sleeping 1 ms after each failed one, so a
    // failed call takes about `tries` ms. Negative `tries` waits without limit, like wait();
    // 0 returns -1 without any attempt, even when units are available.
    int trywait(long tries);
    // Adds one unit, waking one waiter. -1 when the count is already at its maximum.
    int post();

    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

private:
    void* mHandle;  // the platform semaphore; null when it could not be made
};

}  // namespace mirel
