// An application that links the installed library: takes a lock and spawns a thread.
#include <base/system/system.h>
#include <base/threads/spinlock.h>

#include <cstdio>

int main() {
    mirel::SpinLock lock;
    static int counter = 0;
    pthread_t t = mirel::System::spawn(
        [](void*) -> void* {
            mirel::CSMutex hold(*mirel::GlobalLock::gGlobalLock());
            ++counter;
            return nullptr;
        },
        nullptr);
    if (t == 0 || mirel::System::join(t) != 0 || counter != 1) return 1;
    if (lock.lock(mirel::kWaitForever) != 0 || lock.unlock() != 0) return 1;
    std::puts("consumer: linked against the installed mirel");
    return 0;
}
