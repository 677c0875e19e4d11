// System: the platform services of the library as static members of one class. This part
// covers threads (spawn and join, thread-local storage keys, the main-thread mark, a
// millisecond sleep) and the processor count; the other families join the class as they
// land.
//
// Results follow the platform: 0 is success and other values are the platform's error
// numbers, passed through unchanged.
#pragma once

#include <sys/types.h>  // pthread_t, and nothing else of the platform's thread API

#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT System {
public:
    // The value the application's main thread passes to setMainThreadId().
    static constexpr unsigned int kMainThreadMark = 0xC0FFEE;

    // Threads ------------------------------------------------------------------------------

    // Starts a joinable thread that runs `function(argument)`; a null handle (0) when the
    // thread could not be started. Join every thread spawned.
    static pthread_t spawn(void* (*function)(void*), void* argument);
    // Waits for `thread` to end; its return value is discarded. 0 or an error number.
    static int join(pthread_t thread);
    // A new thread-local storage key without destructor; failure is not reported.
    static unsigned long createThreadKey();
    static void* getThreadStorage(unsigned long key);
    static int setThreadStorage(unsigned long key, void* value);
    static pthread_t getCurrentThread();
    // Marks the calling thread with `id`; kMainThreadMark marks it as the main thread. The
    // first call creates the key unlocked: make it on the main thread before others start.
    static int setMainThreadId(unsigned int id);
    // True when the calling thread was marked with kMainThreadMark; false before any mark.
    static bool isMainThread();
    // Sleeps `ms` milliseconds; -1 sleeps for ever (0x7FFFFFFF seconds). Other negative
    // values return at once with the platform's error.
    static int sleep(int ms);

    // Platform ----------------------------------------------------------------------------

    // Processors currently online.
    static int getNumProcessors();
};

// A scoped pool for objects of the platform's object runtime. Linux has none: the pool
// is null and releasing it does nothing.
MIREL_EXPORT void* createAutoreleasePool();
MIREL_EXPORT void releaseAutoreleasePool(void* pool);

}  // namespace mirel
