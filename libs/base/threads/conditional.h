// Conditional: a condition variable that waits on a SpinLock.
//
// The wait releases the lock's mutex while blocked and takes it back before returning, as a
// condition variable does. The SpinLock's owner and recursion depth are saved before the wait
// and restored after it, so the waiter holds the lock exactly as before, however many other
// threads took and released it meanwhile; while it is blocked the lock reads as free.
//
// Wake-ups may be spurious: test the awaited state in a loop. Operations return 0 or -1 and
// never throw.
#pragma once

#include "base/mirel_export.h"

namespace mirel {

class SpinLock;
struct ConditionalData;

class MIREL_EXPORT Conditional {
public:
    Conditional();
    ~Conditional();

    // Waits until signalled. The caller must hold `lock` (at any depth); -1 at once, without
    // waiting, when it does not. Otherwise 0.
    int wait(SpinLock& lock);
    // wait() for at most `ms` milliseconds. -1 when the time ran out (0 times out at once) or
    // the caller does not hold `lock`; 0 when signalled. Keep `ms` at or below 2,147,483:
    // the deadline is computed in 32 bits and a larger limit gives an invalid deadline (-1).
    int timedwait(SpinLock& lock, unsigned long ms);
    // Wakes one waiter / every waiter. Always 0.
    int signal();
    int broadcast();

    Conditional(const Conditional&) = delete;
    Conditional& operator=(const Conditional&) = delete;

private:
    ConditionalData* mData;
};

}  // namespace mirel
