// QtTimerManager: the Timer::Manager of a Qt application, on Qt's own event loop.
//
// Install it with one line on the thread that runs the event loop, after the application
// object exists and for as long as timers and methods are used:
//
//   mirel::QtTimerManager timerManager;
//
// Peers are precise QTimers (interval in milliseconds, single shot when asked; a coarse timer
// could fire up to 5% early). Make and use Timers on the event-loop thread. Methods handed
// over from other threads run on the event-loop thread as posted events; execute(m, true)
// from another thread blocks until `m` has run there, so the loop must be running (or about
// to run) and must not itself be waiting for the caller. On the event-loop thread execute()
// runs the method at once. executeAsync() always posts and returns.
#pragma once

#include "base/mirel_export.h"
#include "base/timer/timer.h"

namespace mirel {

class MIREL_EXPORT QtTimerManager : public Timer::Manager {
public:
    // Installs itself; the calling thread becomes the event-loop thread.
    QtTimerManager();
    // Uninstalls itself and destroys the peers it made (their timers stay valid and inert).
    // Methods still queued run here, so nothing handed over is lost and no caller is left
    // waiting. Destroy it on the event-loop thread, after other threads stopped using it.
    ~QtTimerManager() override;

    Timer::Peer* createPeer(Timer* timer) override;
    // With `wait`: at once on the event-loop thread, else posted and awaited. Without:
    // posted, like executeAsync().
    void execute(Timer::SyncMethod& method, bool wait) override;
    void executeAsync(Timer::SyncMethod& method) override;

    struct Private;

private:
    Private* d;
};

}  // namespace mirel
