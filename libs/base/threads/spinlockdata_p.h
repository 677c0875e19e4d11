// The platform state behind a SpinLock, shared with the waiting primitives that wait on
// the lock's own mutex.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <type_traits>

#include "base/threads/spinlock.h"

namespace mirel {

// `state` comes first so that the inline paths of SpinLock find owner and count at the
// data's own address. `region` is a plain (non-recursive) mutex: the lock counts
// recursion itself.
struct SpinLockData {
    detail::SpinLockState state;
    pthread_mutex_t region;
    std::uint32_t spinCount = 0;
};

static_assert(std::is_standard_layout_v<SpinLockData>,
              "SpinLock::state() relies on the state being at the data's address");

}  // namespace mirel
