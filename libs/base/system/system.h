// System: the platform services of the library as static members of one class. This part
// covers threads (spawn and join, thread-local storage keys, the main-thread mark, a
// millisecond sleep) and the processor count; the other families join the class as they
// land.
//
// Results follow the platform: 0 is success and other values are the platform's error
// numbers, passed through unchanged.
#pragma once

#include <sys/types.h>  // pthread_t, and nothing else of the platform's thread API

#include <QString>

#include <cstdint>
#include <ctime>

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

    // Clocks, frame clock and random numbers ------------------------------------------------
    //
    // The clocks start when the library is loaded. The frame clock, the frame counter and
    // the random sources keep unsynchronised process-wide state: they belong to the render
    // thread. The clocks themselves may be read from any thread.

    // The one instance: its construction at load starts the clocks and seeds the random
    // sources; its destruction at unload closes LM_ERROR and LM_NOTICE when the
    // application replaced them.
    static System theSystem;

    // Seconds since the library was loaded, to the nanosecond, from the monotonic clock:
    // never steps back when the wall clock is set.
    static double getTime();
    // getTime() as read at load, just after the clock's zero was taken (about 0).
    static double getStartTime();
    // Wall-clock milliseconds since 1970.
    static unsigned long long getSystemTime();
    // Wall-clock seconds since 1970, as the wall clock read at the first call plus getTime()
    // elapsed since: cheap, and immune to later clock changes. 32-bit, so it wraps in 2106.
    static unsigned long getCurrTime();

    // Seconds between the last two rendered frames, at most 0.2; 1/rate at a fixed rate.
    static double getGlobalDT();
    // Advances the frame clock; call once per frame, `rendered` false for frames skipped.
    // The first rendered frame after skipped ones restarts the clock without changing
    // getGlobalDT(), so a pause never shows up as one long frame.
    static void updateGlobalDT(bool rendered);
    // `fixed`: every frame lasts 1/`rate` seconds from now on; otherwise frames are timed
    // on the clock (getFrameRate() 0).
    static void setFixedFrameRate(bool fixed, double rate);
    // The fixed rate in frames per second; 0 when frames are timed on the clock.
    static double getFrameRate();
    static int getCurrentFrame();
    // Counts one frame more; returns the new count.
    static int setNextFrame();
    // The planet's mean radius in metres (6,371,000).
    static double getPlanetRadius();

    // Seeds both random sources; 0 seeds them as 3141592 does. The integer source is the C
    // library's rand(), shared with anything else in the process that calls it.
    static void seed(unsigned int s);
    // lo + (a draw modulo hi - lo): from lo up to, not including, hi. 0 without drawing when
    // hi < lo; when hi == lo, lo plus the raw draw (deliberately: no special case).
    static int random(int lo, int hi);
    // The next value of a cheap chaotic sequence in [0, 1); reproducible after seed().
    static double randf();

    // asctime() / ctime() as text, trailing newline included; the null QString for a null
    // argument or a time the C library cannot print. Thread-safe.
    static QString wasctime(tm* t);
    static QString wctime(const long* t);

    // Adds `seconds` to every later reading of getTime(), and so to everything timed on
    // it: lets a test step the clock back or skip ahead without waiting. Not for
    // production use.
    static void shiftTimeForTesting(double seconds);

    // Message boxes -----------------------------------------------------------------------

    // The kind of box AsyncMessageBox() shows: 1 is a warning, any other value information.
    enum MessageType : std::int32_t { kMessageInformation = 0, kMessageWarning = 1 };

    // Shows a message box on the event-loop thread on behalf of any thread and returns at
    // once; the box frees itself when closed. Needs an installed Timer::Manager (without
    // one the process ends with a message) and, to show the box, a QApplication.
    static void AsyncMessageBox(MessageType type, const QString& title, const QString& text);

private:
    System();
    ~System();

    static double globalDT;
    static double frameRate;
    static std::int32_t curFrame;
    static double fseed;
};

// A scoped pool for objects of the platform's object runtime. Linux has none: the pool
// is null and releasing it does nothing.
MIREL_EXPORT void* createAutoreleasePool();
MIREL_EXPORT void releaseAutoreleasePool(void* pool);

}  // namespace mirel
