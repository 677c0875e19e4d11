#include "base/foundation/referent.h"

#include <gtest/gtest.h>

#include <atomic>

#include "base/testing/testutil.h"

namespace mirel {
namespace {

class Tracked : public Referent {
public:
    explicit Tracked(int* destroyed) : mDestroyed(destroyed) {}
    Tracked(const Tracked& other) = default;
    ~Tracked() override { ++*mDestroyed; }

private:
    int* mDestroyed;
};

// Counting --------------------------------------------------------------------------------

TEST(Referent, CountStartsAtZeroAndCopiesDoNotInheritIt) {
    int destroyed = 0;
    Tracked a(&destroyed);
    EXPECT_EQ(a.getRefCount(), 0);
    a.addRef();
    a.addRef();
    Tracked b(a);
    EXPECT_EQ(b.getRefCount(), 0);
    b.addRef();
    a = b;  // assignment copies the value, never the holders
    EXPECT_EQ(a.getRefCount(), 2);
    EXPECT_EQ(b.getRefCount(), 1);
    // Stack objects: their references are never all given back, so nothing deletes them.
}

TEST(Referent, TheLastReleaseDeletesThroughTheVirtualDestructor) {
    int destroyed = 0;
    Referent* r = new Tracked(&destroyed);
    r->addRef();
    r->addRef();
    r->release();
    EXPECT_EQ(destroyed, 0);
    r->release();
    EXPECT_EQ(destroyed, 1);
}

TEST(Referent, OrphanedCanBeOverriddenToKeepTheObject) {
    class Recycled : public Referent {
    public:
        int orphanings = 0;

    protected:
        void orphaned() override { ++orphanings; }
    } r;
    r.addRef();
    r.release();
    EXPECT_EQ(r.orphanings, 1);
    r.addRef();  // back in use after being orphaned
    r.release();
    EXPECT_EQ(r.orphanings, 2);
}

// Sharing between threads ------------------------------------------------------------------

TEST(Referent, ConcurrentHoldersNeverDeleteEarlyAndDeleteExactlyOnce) {
    int destroyed = 0;
    Referent* r = new Tracked(&destroyed);
    r->addRef();  // the main holder
    constexpr int kThreads = 6, kRounds = 20000;
    testing::runTogether(kThreads, [&](int) {
        for (int i = 0; i < kRounds; ++i) {
            r->addRef();
            r->release();
        }
    });
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(r->getRefCount(), 1);

    // The last reference may be dropped on any thread.
    for (int i = 0; i < kThreads; ++i) r->addRef();
    testing::runTogether(kThreads, [&](int) { r->release(); });
    EXPECT_EQ(destroyed, 0);
    r->release();
    EXPECT_EQ(destroyed, 1);
}

}  // namespace
}  // namespace mirel
