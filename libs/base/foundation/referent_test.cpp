#include "base/foundation/referent.h"

#include <gtest/gtest.h>

#include "base/testing/testutil.h"

namespace mirel {
namespace {

class Tracked : public Referent {
public:
    explicit Tracked(int* destroyed) : mDestroyed(destroyed) {}
    Tracked(const Tracked& other) = default;
    Tracked& operator=(const Tracked& other) = default;
    ~Tracked() override { ++*mDestroyed; }

private:
    int* mDestroyed;
};

// Copies and assignments carry the value, never the holders; the last release deletes.
TEST(Referent, CountsHoldersNotCopiesAndTheLastReleaseDeletes) {
    int destroyed = 0;
    Tracked* a = new Tracked(&destroyed);
    EXPECT_EQ(a->getRefCount(), 0);
    a->addRef();
    a->addRef();
    Tracked b(*a);
    EXPECT_EQ(b.getRefCount(), 0);
    b.addRef();
    *a = b;
    EXPECT_EQ(a->getRefCount(), 2);
    EXPECT_EQ(b.getRefCount(), 1);
    a->release();
    EXPECT_EQ(destroyed, 0);
    a->release();
    EXPECT_EQ(destroyed, 1);
}

// Holders on many threads: never deleted early, deleted exactly once by whichever thread
// drops the last reference.
TEST(Referent, ConcurrentHoldersNeverDeleteEarlyAndDeleteExactlyOnce) {
    int destroyed = 0;
    Referent* r = new Tracked(&destroyed);
    r->addRef();  // the main holder
    constexpr int kThreads = 6, kRounds = 20000;
    // A lost update shows in some runs only: repeat while none has shown.
    for (int rep = 0; rep < 10 && destroyed == 0 && r->getRefCount() == 1; ++rep) {
        testing::runTogether(kThreads, [&](int) {
            for (int i = 0; i < kRounds; ++i) r->addRef(), r->release();
        });
    }
    ASSERT_EQ(destroyed, 0);
    ASSERT_EQ(r->getRefCount(), 1);
    for (int i = 0; i < kThreads; ++i) r->addRef();
    r->release();
    testing::runTogether(kThreads, [&](int) { r->release(); });
    EXPECT_EQ(destroyed, 1);
}

}  // namespace
}  // namespace mirel
