// The clocks on Linux: the monotonic clock for getTime(), the wall clock for the rest, and
// the reentrant forms of the C library's calendar texts.
#include <sys/time.h>
#include <time.h>

#include <atomic>
#include <cstdint>

#include "base/system/system.h"
#include "base/system/systemclock_p.h"

namespace mirel {

namespace {

// The zero of getTime(); zero until the System constructor runs, so a reading taken by an
// earlier static initialiser counts from the machine's boot instead.
timespec startTime{};
std::atomic<double> sTimeShift{0.0};

// Truncated to 32 bits the way a 32-bit time_t difference would be.
inline std::int32_t difference32(long a, long b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

}  // namespace

void startClock() { clock_gettime(CLOCK_MONOTONIC, &startTime); }

double System::getTime() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const double seconds = static_cast<double>(difference32(now.tv_sec, startTime.tv_sec)) +
                           static_cast<double>(difference32(now.tv_nsec, startTime.tv_nsec)) / 1e9;
    return seconds + sTimeShift.load(std::memory_order_relaxed);
}

void System::shiftTimeForTesting(double seconds) {
    // A single writer (the test) and readers that only need some recent value.
    sTimeShift.store(sTimeShift.load(std::memory_order_relaxed) + seconds,
                     std::memory_order_relaxed);
}

unsigned long long System::getSystemTime() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<unsigned long long>(now.tv_sec) * 1000ULL +
           static_cast<unsigned long long>(now.tv_usec) / 1000ULL;
}

namespace {

// asctime_r() needs 26 bytes; the rest is slack.
constexpr int kTimeTextSize = 64;

}  // namespace

QString System::wasctime(tm* t) {
    if (t == nullptr) return QString();
    char text[kTimeTextSize];
    // Fails (null) for a year that needs more than four digits.
    if (asctime_r(t, text) == nullptr) return QString();
    return QString::fromUtf8(text);
}

QString System::wctime(const long* t) {
    static_assert(sizeof(long) == sizeof(time_t), "a long holds a time_t on this platform");
    if (t == nullptr) return QString();
    const time_t when = static_cast<time_t>(*t);
    tm local;
    // ctime() in two steps, so that a time localtime cannot represent fails cleanly.
    if (localtime_r(&when, &local) == nullptr) return QString();
    char text[kTimeTextSize];
    if (asctime_r(&local, text) == nullptr) return QString();
    return QString::fromUtf8(text);
}

}  // namespace mirel
