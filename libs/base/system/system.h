// System: the platform services of the library as static members of one class, and the
// one place the rest of the library and the application ask about the machine.
//
//   threads        spawn and join, thread-local keys, the main-thread mark, sleep
//   platform       OS family and version, processor type, count and clock, memory in MB
//   paths, files   install, application, cache, documents and temporary folders; the
//                  POSIX file calls on QString paths with 64-bit offsets (see also file.h)
//   locale, web    current and preferred locales, localised support addresses, the browser
//   clocks         time since load, wall clock, frame clock, random numbers
//   message boxes  AsyncMessageBox from any thread, through the timer layer
//
// Plug-ins are in library.h, resource files in binres.h. Where the code lives:
//
//   system/   the portable half: clocks and random numbers, locale and addresses,
//             resources, the message-box hand-off
//   linux/    everything that talks to the OS: threads, clocks, platform facts, files,
//             plug-ins, the resource folder; its private helper header linuxutil_p.h also
//             serves the layers below System (locks, status codes, worker groups), which
//             sleep and count processors through it rather than reaching up into System
//
// This header includes no OS header beyond <sys/types.h>.
//
// Results follow the platform: 0 is success and other values are the platform's error
// numbers, passed through unchanged; file calls return -1 and leave the reason in
// getLastError().
#pragma once

#include <sys/types.h>  // pthread_t, and nothing else of the platform's thread API

#include <QString>
#include <QStringList>

#include <cstdint>
#include <ctime>

#include "base/mirel_export.h"
#include "base/status/statuscode.h"

namespace mirel {

// A 16-byte identifier from System::getGUID().
struct GUID {
    unsigned char data[16];
};

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
    //
    // Thin queries of the kernel; none reports failure (an unreadable figure is 0) and all
    // may run on any thread.

    // Operating-system families; the display names each end in one blank.
    enum OSVersion : std::int32_t {
        kOSUnknown = 0,
        kOSWin32s = 1,
        kOSWin95 = 2,
        kOSWin98 = 3,
        kOSWinME = 4,
        kOSWinNT = 5,
        kOSWin2000 = 6,
        kOSWinXP = 7,
        kOSWinServer = 8,
        kOSMacOSX = 9,
        kOSLinux = 10,
    };

    // The family: always kOSLinux here.
    static OSVersion getOSVersion();
    // The family and the kernel release's first four numbers: "6.1.0-18-amd64" gives 6, 1,
    // 0, 18. Numbers the release does not have are 0.
    static void getOSVersion(OSVersion& os, int& major, int& minor, int& bugfix, int& build);
    // The display name of `os`, "Linux " for kOSLinux; "UNKNOWN " for 0 and values outside
    // the table.
    static QString getOSName(OSVersion& os);
    // The display name and the version: "Linux (6.1.0.18)".
    static QString getOSVersionString();
    // x86: the CPUID family (3, 4 or 5 as is, 6 for 6 and above); PowerPC: 0x80000001;
    // any other processor: 0.
    static unsigned long getProcessorType();
    // Processors currently online.
    static int getNumProcessors();
    // The fastest clock of processor 0 in hertz (cpufreq, else /proc/cpuinfo); 0 unknown.
    static float getProcessorClockSpeed();
    // `avail`: MemAvailable in MB, capped at 2047; `limit`: always 2047.
    static void getAvailableMemoryMB(int& avail, int& limit);
    // `used`: memory the kernel may not evict (Unevictable) in MB; `paged`: pages written
    // to swap since boot, in MB. Each capped at 2047.
    static void getUsedMemoryMB(int& used, int& paged);
    // `total`: free + active + inactive + unevictable memory in MB, the byte count taken
    // in 32 bits, so it wraps at 4 GiB (kept: callers compare it with a 32-bit figure);
    // `total4` is four times `total`.
    static void getTotalMemoryMB(int& total, int& total4);
    // Always false.
    static bool supportsIntelMMX();
    static bool supportsIntelSIMD();
    // Eight fixed bytes ("mirelGID"), then the first eight bytes of a fresh random UUID:
    // only the second half differs between calls.
    static GUID getGUID();
    // The calling thread's errno.
    static int getLastError();

    // Paths --------------------------------------------------------------------------------
    //
    // Folder look-ups report no failure. The setters belong to the main thread, at start.

    // Stores the installation folder, adding a final "/" when missing.
    static void setInstallPath(const QString& path);
    // The installation folder, ending in "/" once set; empty before.
    static QString getInstallPath();
    // "<XDG data home>/Vantor Mirel" (~/.local/share/Vantor Mirel), made with its parents
    // when missing; a failed creation is ignored. No final "/".
    static QString getAppDirectory();
    // "<XDG cache home>/Vantor Mirel" (~/.cache/Vantor Mirel), made the same way.
    static QString getCacheDirectory();
    // The user's documents folder, as it is; nothing is made.
    static QString getMyDocumentsDirectory();
    // The temporary folder followed by "/".
    static QString getTempDirectory();
    // Makes `path` and its missing parents. The path is cleaned and rebuilt from the root,
    // so a relative "a/b" is made as "/a/b". 0 on success (nothing made when it exists);
    // status::kObjectAlreadyActive for an empty path; status::kIOFailed when a folder cannot
    // be made, a component is a file, or the path holds a NUL or an unpaired surrogate.
    static StatusCode makeAbsDirPath(const QString& path);
    // getTempDirectory() + `prefix` + a random number below 10000 + "." + `extension`
    // (no "." for an empty extension). Not created, nor checked to be unused.
    static QString makeTempFilePath(const QString& prefix, const QString& extension);

    // Files ----------------------------------------------------------------------------------
    //
    // The POSIX calls, results passed through (-1 and errno on failure). QString paths go
    // to the system in UTF-8; a path holding a NUL or an unpaired surrogate would name
    // another file there, so it fails with -1 and EINVAL instead. Offsets are 64-bit.

    static int open(const QString& path, int flags, int mode);
    static int open(const char* path, int flags, int mode);
    static int close(int fd);
    static long read(int fd, void* buffer, unsigned long count);
    static long write(int fd, const void* buffer, unsigned long count);
    static long long lseek(int fd, long long offset, int whence);
    static int ftruncate(int fd, long long length);
    // The file's size cut to 32 bits (a 3 GiB file reads as a negative number); -1 when
    // fstat fails. lseek(fd, 0, SEEK_END) gives the whole size.
    static int getSize(int fd);
    static int unlink(const QString& path);
    static int rename(const QString& from, const QString& to);
    static int access(const QString& path, int mode);

    // What direct (unbuffered) I/O needs; nothing here supports it.
    struct DirectIoInfo {
        unsigned long memoryAlignment;
        unsigned long offsetAlignment;
        unsigned long sizeAlignment;
    };
    // Always false; `info` is left untouched.
    static bool supportsDirectIo(const QString& path);
    static bool getDirectIoInfo(const QString& path, DirectIoInfo& info);
    // Data providers' statistics are not kept here: `size` becomes 0 and false comes back.
    static bool loadProviderStats(void* buffer, unsigned long& size);
    // Always false.
    static bool saveProviderStats(const void* buffer, unsigned long size);

    // Locale and web addresses ---------------------------------------------------------------
    //
    // Main thread only.

    // Sets the current locale ("fr_FR"); its first two characters choose the web domain.
    static void setCurrentLocale(const QString& locale);
    // The current locale; until set, the first of getPlatformPreferredLocaleList().
    static QString getCurrentLocale();
    // The user's languages in preference order, "_" between language and region ("fr_CA").
    // The application's stored choice comes first: the key "Locale/preferred" of its user
    // settings (VersionInfo::createUserAppSettings()), one name or a list. The platform's
    // languages follow, each once.
    static QStringList getPreferredLocaleList();
    // The platform's languages: QLocale::system().uiLanguages() with "-" turned into "_".
    static QStringList getPlatformPreferredLocaleList();
    // `url` with every occurrence of the default web domain replaced by the country domain
    // of the current language (fr, it, de, es); other languages leave it unchanged.
    //
    // Domains and the support host come from the common settings
    // (VersionInfo::createUserCommonSettings(), then createGlobalCommonSettings()), read at
    // each call; a missing or empty key takes the default:
    //   Web/domain       "vantor.com"                  Web/domain_fr  "vantor.fr"
    //   Web/supportHost  "https://support.vantor.com"  Web/domain_it  "vantor.it"
    //                                                  Web/domain_de  "vantor.de"
    //                                                  Web/domain_es  "vantor.es"
    static QString getVantorURLLocalizedByLang(const QString& url);
    // "<support host>/support/bin/answer.py?answer=<answer>", localised.
    static QString getLocalizedSupportURL(int answer);
    // "<support host>/support/bin/request.py", localised.
    static QString getLocalizedGenericSupportURL();
    // "<support host>/support/bin/request.py?contact_type=problem&submit=Continue",
    // localised.
    static QString getLocalizedContactSupportURL();
    // Opens `url` in the user's browser (QDesktopServices::openUrl: needs a
    // QGuiApplication), characters that a URL cannot hold percent-encoded as UTF-8. The two
    // flags have no effect. False for an empty or malformed URL (nothing is opened) or a
    // failed launch; the answer is also left in sLastLaunchSucceded.
    static bool LaunchExternalBrowser(const QString& url, bool newWindow = false,
                                      bool raise = false);
    // Does nothing: failed launches show no dialog here.
    static void showBrowserError(int error, const QString& url);
    // The answer of the last LaunchExternalBrowser() that tried to open something.
    static bool sLastLaunchSucceded;

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
