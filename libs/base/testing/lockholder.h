// LockHolder: a thread of its own that holds a SpinLock, for tests of what other threads
// see while a lock is taken elsewhere.
#pragma once

#include <atomic>
#include <thread>

namespace mirel {
class SpinLock;
}

namespace mirel::testing {

class LockHolder {
public:
    // Returns once the holder owns `lock`, `depth` levels deep.
    explicit LockHolder(SpinLock& lock, int depth = 1);
    // Releases (at once, unless release() asked for a delay) and joins.
    ~LockHolder();
    // Lets the holder give the lock back, after sleeping `afterMs`; does not wait for it.
    void release(int afterMs = 0);

    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

private:
    std::atomic<bool> mHeld{false};
    std::atomic<int> mReleaseAfterMs{-1};  // -1 while the lock is to be kept
    std::thread mThread;
};

}  // namespace mirel::testing
