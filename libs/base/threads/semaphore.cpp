// Semaphore over an unnamed POSIX semaphore.
#include "base/threads/semaphore.h"

#include <semaphore.h>
#include <time.h>

#include <cerrno>

namespace mirel {

namespace {

constexpr long kMaxCount = 0x7FFFFFFF;

inline sem_t* sem(void* handle) { return static_cast<sem_t*>(handle); }

}  // namespace

Semaphore::Semaphore(long initial) : mHandle(nullptr) {
    // A count the platform cannot hold leaves no semaphore at all, so that every later
    // operation fails plainly instead of acting on an unmade one.
    if (initial < 0 || initial > kMaxCount) return;
    auto* s = new sem_t;
    if (sem_init(s, 0, static_cast<unsigned int>(initial)) != 0) {
        delete s;
        return;
    }
    mHandle = s;
}

Semaphore::~Semaphore() {
    if (mHandle == nullptr) return;
    sem_destroy(sem(mHandle));
    delete sem(mHandle);
}

int Semaphore::wait() {
    if (mHandle == nullptr) return -1;
    // A signal handler interrupting the wait is not a failure of the wait.
    while (sem_wait(sem(mHandle)) != 0) {
        if (errno != EINTR) return -1;
    }
    return 0;
}

int Semaphore::trywait() {
    if (mHandle == nullptr) return -1;
    return sem_trywait(sem(mHandle)) == 0 ? 0 : -1;
}

int Semaphore::trywait(long tries) {
    if (tries < 0) return wait();
    // Zero tries means no try: the caller asked for no attempt.
    if (tries == 0) return -1;
    static constexpr timespec delay{0, 1000000};
    for (long i = 0; i < tries; ++i) {
        if (trywait() == 0) return 0;
        nanosleep(&delay, nullptr);
    }
    return -1;
}

int Semaphore::post() {
    if (mHandle == nullptr) return -1;
    return sem_post(sem(mHandle)) == 0 ? 0 : -1;
}

}  // namespace mirel
