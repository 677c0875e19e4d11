#include "base/testing/lockholder.h"

#include "base/system/system.h"
#include "base/threads/spinlock.h"

namespace mirel::testing {

LockHolder::LockHolder(SpinLock& lock, int depth) {
    mThread = std::thread([this, &lock, depth] {
        for (int i = 0; i < depth; ++i) lock.lock(kWaitForever);
        mHeld.store(true);
        int afterMs;
        while ((afterMs = mReleaseAfterMs.load()) < 0) System::sleep(1);
        if (afterMs > 0) System::sleep(afterMs);
        for (int i = 0; i < depth; ++i) lock.unlock();
    });
    while (!mHeld.load()) System::sleep(1);
}

LockHolder::~LockHolder() {
    int keep = -1;
    mReleaseAfterMs.compare_exchange_strong(keep, 0);
    mThread.join();
}

void LockHolder::release(int afterMs) { mReleaseAfterMs.store(afterMs); }

}  // namespace mirel::testing
