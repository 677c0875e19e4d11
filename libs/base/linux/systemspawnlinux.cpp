// Threads on POSIX threads: spawning through a start record, thread-local keys, the
// main-thread mark and sleeping.
#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "base/linux/linuxutil_p.h"
#include "base/memory/memoryobject.h"
#include "base/system/system.h"

namespace mirel {

// The thread-storage key of the main-thread mark, made by the first setMainThreadId().
MIREL_EXPORT unsigned long sThreadIdKey = 0;

namespace {

// 0 is a valid key on Linux, so whether the key exists is kept apart from its value.
std::atomic<bool> sThreadIdKeyCreated{false};

struct StartRecord {
    void* (*function)(void*);
    void* argument;
};

void* pthreadWrapperFunc(void* record) {
    auto* start = static_cast<StartRecord*>(record);
    void* pool = createAutoreleasePool();
    void* result = start->function(start->argument);
    releaseAutoreleasePool(pool);
    doDelete(start, nullptr);
    return result;
}

}  // namespace

void* createAutoreleasePool() { return nullptr; }

void releaseAutoreleasePool(void* /*pool*/) {}

pthread_t System::spawn(void* (*function)(void*), void* argument) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    auto* start = static_cast<StartRecord*>(doNew(sizeof(StartRecord), nullptr));
    start->function = function;
    start->argument = argument;
    pthread_t thread = 0;
    int rc = pthread_create(&thread, &attr, pthreadWrapperFunc, start);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        doDelete(start, nullptr);
        return 0;
    }
    return thread;
}

int System::join(pthread_t thread) { return pthread_join(thread, nullptr); }

unsigned long System::createThreadKey() {
    pthread_key_t key = 0;
    pthread_key_create(&key, nullptr);
    return key;
}

void* System::getThreadStorage(unsigned long key) {
    return pthread_getspecific(static_cast<pthread_key_t>(key));
}

int System::setThreadStorage(unsigned long key, void* value) {
    return pthread_setspecific(static_cast<pthread_key_t>(key), value);
}

pthread_t System::getCurrentThread() { return pthread_self(); }

int System::setMainThreadId(unsigned int id) {
    if (!sThreadIdKeyCreated.load(std::memory_order_acquire)) {
        sThreadIdKey = createThreadKey();
        sThreadIdKeyCreated.store(true, std::memory_order_release);
    }
    return setThreadStorage(sThreadIdKey, reinterpret_cast<void*>(std::uintptr_t{id}));
}

bool System::isMainThread() {
    if (!sThreadIdKeyCreated.load(std::memory_order_acquire)) return false;
    return reinterpret_cast<std::uintptr_t>(getThreadStorage(sThreadIdKey)) == kMainThreadMark;
}

int System::sleep(int ms) { return linuxutil::sleepMilliseconds(ms); }

}  // namespace mirel
