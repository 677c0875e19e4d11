// Timers with observers, and the gateway through which any thread hands work to the
// application's event loop.
//
// The library owns no event loop. The application installs one Timer::Manager built on its
// toolkit (QtTimerManager is ready-made for Qt); every Timer gets a Timer::Peer from it that
// does the timing and calls Timer::fire(), which notifies the timer's observers on the
// event-loop thread. The manager also runs Timer::SyncMethod objects there, waiting for them
// (Timer::execute) or not (Timer::executeAsync).
//
// A Timer and its observer list belong to the event-loop thread and take no lock. Using a
// Timer, execute() or executeAsync() with no manager installed is a programming error: it
// ends the process with a message.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/mirel_export.h"

namespace mirel {

class Timer;

// What an observer is told: which timer fired. Lives for one notification.
struct MIREL_EXPORT TimerEvent {
    Timer* timer;
};

class MIREL_EXPORT ITimer {
public:
    // Told of every firing of the timers it observes, on the event-loop thread.
    class MIREL_EXPORT IObserver {
    public:
        virtual ~IObserver();
        virtual void onTimer(TimerEvent& event) = 0;
    };

    virtual ~ITimer();
    // False, changing nothing, when `observer` is already there; observers are not owned.
    virtual bool addObserver(IObserver& observer) = 0;
    // False when `observer` is not there.
    virtual bool remObserver(IObserver& observer) = 0;
    virtual bool hasObserver(const IObserver& observer) const = 0;
    // Fires after `interval` milliseconds, once when `singleShot`, else every interval.
    virtual void start(unsigned int interval, bool singleShot) = 0;
    virtual bool isActive() const = 0;
    virtual void stop() = 0;
};

class MIREL_EXPORT Timer : public ITimer {
public:
    class Peer;
    class Manager;
    class SyncMethod;

    // Gets its peer from the installed manager.
    Timer();
    // Detaches from its peer and deletes it.
    ~Timer() override;

    bool addObserver(IObserver& observer) override;
    bool remObserver(IObserver& observer) override;
    bool hasObserver(const IObserver& observer) const override;
    // Forwarded to the peer. Once the manager has destroyed the peer they do nothing and
    // isActive() is false.
    void start(unsigned int interval, bool singleShot) override;
    bool isActive() const override;
    void stop() override;

    // Notifies the observers in the order they were added; called by the peer. The walk goes
    // by position and does not copy the list: an observer that removes itself (or an earlier
    // one) makes this firing skip the observer after it. Never add observers from onTimer().
    virtual void fire();

    // Runs `method` on the event-loop thread through the installed manager; with `wait`,
    // returns once it has run (QtTimerManager: at once on that thread). Without `wait`, as
    // executeAsync().
    static void execute(SyncMethod& method, bool wait);
    // Hands `method` to the event-loop thread and returns at once. The method owns itself
    // from then on: its execute() must delete it when done.
    static void executeAsync(SyncMethod& method);

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    Peer* peer;  // owned; null once the manager destroyed it

private:
    std::vector<IObserver*> mObservers;
};

// The toolkit's side of one timer. Call timer->fire() when the time runs out.
class MIREL_EXPORT Timer::Peer {
public:
    explicit Peer(Timer* timer) : timer(timer) {}
    // Clears the timer's pointer to this peer, so a peer destroyed by its manager leaves no
    // dangling pointer behind.
    virtual ~Peer();
    virtual void start(unsigned int interval, bool singleShot) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;

    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    Timer* timer;  // not owned; null once the timer is gone
};

// The application's timer service. Constructing one installs it (the latest wins);
// destroying any manager uninstalls whatever is installed.
class MIREL_EXPORT Timer::Manager {
public:
    Manager();
    virtual ~Manager();
    // A new peer for `timer`, owned by the timer.
    virtual Peer* createPeer(Timer* timer) = 0;
    // Runs `method` on the event-loop thread; with `wait`, returns once it has run.
    virtual void execute(SyncMethod& method, bool wait) = 0;
    // Runs `method` on the event-loop thread later; the method deletes itself.
    virtual void executeAsync(SyncMethod& method) = 0;

    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;
};

// Work to run on the event-loop thread. Allocated through the library allocator (the
// process heap); null when the heap is exhausted.
class MIREL_EXPORT Timer::SyncMethod {
public:
    SyncMethod() = default;
    // Writes 0 to *doneFlag when set, so whoever waits on the method sees it is gone.
    virtual ~SyncMethod();
    virtual void execute() = 0;

    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* ptr) noexcept;

    SyncMethod(const SyncMethod&) = delete;
    SyncMethod& operator=(const SyncMethod&) = delete;

    std::atomic<std::int32_t>* doneFlag = nullptr;  // not owned; may be null
};

// The installed manager; null when none is.
MIREL_EXPORT extern std::atomic<Timer::Manager*> sManager;

}  // namespace mirel
