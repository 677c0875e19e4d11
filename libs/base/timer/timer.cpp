// Timers, the observer walk, and the hand-off to the installed manager.
#include "base/timer/timer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "base/memory/memoryobject.h"

namespace mirel {

std::atomic<Timer::Manager*> sManager{nullptr};

namespace {

// Working without a manager would lose the timer's firings or the caller's method
// silently; the process ends instead, naming the mistake.
Timer::Manager& installedManager(const char* operation) {
    Timer::Manager* manager = sManager.load(std::memory_order_acquire);
    if (manager == nullptr) {
        std::fprintf(stderr, "mirel: %s with no Timer::Manager installed\n", operation);
        std::abort();
    }
    return *manager;
}

}  // namespace

ITimer::IObserver::~IObserver() = default;
ITimer::~ITimer() = default;

Timer::Timer() : peer(nullptr) { peer = installedManager("Timer constructed").createPeer(this); }

Timer::~Timer() {
    if (peer != nullptr) {
        peer->timer = nullptr;
        delete peer;
        peer = nullptr;
    }
}

bool Timer::addObserver(IObserver& observer) {
    if (hasObserver(observer)) return false;
    mObservers.push_back(&observer);
    return true;
}

bool Timer::remObserver(IObserver& observer) {
    auto it = std::find(mObservers.begin(), mObservers.end(), &observer);
    if (it == mObservers.end()) return false;
    mObservers.erase(it);
    return true;
}

bool Timer::hasObserver(const IObserver& observer) const {
    return std::find(mObservers.begin(), mObservers.end(), &observer) != mObservers.end();
}

void Timer::start(unsigned int interval, bool singleShot) {
    if (peer != nullptr) peer->start(interval, singleShot);
}

bool Timer::isActive() const { return peer != nullptr && peer->isActive(); }

void Timer::stop() {
    if (peer != nullptr) peer->stop();
}

void Timer::fire() {
    // By position, with the end read again each step, on purpose: see the header.
    for (std::size_t i = 0; i < mObservers.size(); ++i) {
        TimerEvent event{this};
        mObservers[i]->onTimer(event);
    }
}

void Timer::execute(SyncMethod& method, bool wait) {
    installedManager("Timer::execute").execute(method, wait);
}

void Timer::executeAsync(SyncMethod& method) {
    installedManager("Timer::executeAsync").executeAsync(method);
}

Timer::Peer::~Peer() {
    if (timer != nullptr) timer->peer = nullptr;
}

Timer::Manager::Manager() { sManager.store(this, std::memory_order_release); }

Timer::Manager::~Manager() { sManager.store(nullptr, std::memory_order_release); }

Timer::SyncMethod::~SyncMethod() {
    if (doneFlag != nullptr) doneFlag->store(0, std::memory_order_release);
}

void* Timer::SyncMethod::operator new(std::size_t size) noexcept { return doNew(size, nullptr); }

void Timer::SyncMethod::operator delete(void* ptr) noexcept { doDelete(ptr, nullptr); }

}  // namespace mirel
