// The portable half of the clocks: the frame clock, the derived wall clock, the random
// sources and the one System instance that starts them all at load.
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>

#include "base/status/statussubsys.h"
#include "base/system/system.h"
#include "base/system/systemclock_p.h"
#include "base/threads/spinlock.h"

namespace mirel {

namespace {

constexpr double kPlanetRadius = 6371000.0;
// A longer frame is taken for a stall, not for animation time.
constexpr double kMaxDT = 0.2;
constexpr unsigned int kDefaultSeed = 3141592;
constexpr double kPi = 3.141592653589793;

double sStartTime = 0.0;

}  // namespace

double System::globalDT = 0.0;
double System::frameRate = 0.0;
std::int32_t System::curFrame = 0;
double System::fseed = 0.0;

System System::theSystem;

System::System() {
    startClock();
    seed(static_cast<unsigned int>(std::time(nullptr)));
    sStartTime = getTime();
}

System::~System() {
    // The application may have pointed the log streams at files of its own; standard
    // error stays open. They fall back to it so that a late ErrorLog still has somewhere
    // to write.
    if (LM_ERROR != nullptr && LM_ERROR != stderr) std::fclose(LM_ERROR);
    if (LM_NOTICE != nullptr && LM_NOTICE != stderr && LM_NOTICE != LM_ERROR) {
        std::fclose(LM_NOTICE);
    }
    LM_ERROR = stderr;
    LM_NOTICE = stderr;
}

double System::getStartTime() { return sStartTime; }

unsigned long System::getCurrTime() {
    static std::atomic<bool> currTimeInit{false};
    static std::uint32_t baseTime = 0;
    static double baseTick = 0.0;
    if (!currTimeInit.load(std::memory_order_acquire)) {
        auto init = [] {
            if (currTimeInit.load(std::memory_order_relaxed)) return;
            baseTime = static_cast<std::uint32_t>(std::time(nullptr));
            baseTick = getTime();
            currTimeInit.store(true, std::memory_order_release);
        };
        // The lock is gone only during unload, when no other thread is left to race.
        if (SpinLock* lock = GlobalLock::gGlobalLock(); lock != nullptr) {
            CSMutex hold(*lock);
            init();
        } else {
            init();
        }
    }
    // Truncated to 32 bits, wrapping rather than saturating: through a 64-bit integer so
    // that elapsed times of 2^31 seconds and more convert without undefined behaviour.
    const double elapsed = getTime() - baseTick;
    const std::int64_t whole =
        std::fabs(elapsed) < 9.2e18 ? static_cast<std::int64_t>(elapsed) : 0;
    return static_cast<std::uint32_t>(baseTime + static_cast<std::uint32_t>(whole));
}

// Frame clock --------------------------------------------------------------------------------

double System::getGlobalDT() { return globalDT; }

void System::updateGlobalDT(bool rendered) {
    if (frameRate != 0.0) {
        globalDT = 1.0 / frameRate;
        return;
    }
    static double frameTime = getTime();
    static bool lastRender = false;
    if (!rendered) {
        lastRender = false;
        return;
    }
    if (!lastRender) {
        lastRender = true;
        frameTime = getTime();
        return;
    }
    const double now = getTime();
    if (frameTime != 0.0) {
        globalDT = now - frameTime;
        // A clock that stepped back gives an empty frame, never a negative one.
        if (globalDT < 0.0) globalDT = 0.0;
    }
    frameTime = now;
    if (globalDT > kMaxDT) globalDT = kMaxDT;
}

void System::setFixedFrameRate(bool fixed, double rate) {
    frameRate = fixed ? rate : 0.0;
    if (fixed) updateGlobalDT(false);
}

double System::getFrameRate() { return frameRate; }

int System::getCurrentFrame() { return curFrame; }

int System::setNextFrame() { return ++curFrame; }

double System::getPlanetRadius() { return kPlanetRadius; }

// Random numbers -------------------------------------------------------------------------------

void System::seed(unsigned int s) {
    std::srand(s != 0 ? s : kDefaultSeed);
    // Two draws in this order; the sum starts the chaotic sequence between 2/9 and 1.
    const int first = random(2, 10);
    const int second = random(2, 10);
    fseed = 1.0 / first + 1.0 / second;
}

int System::random(int lo, int hi) {
    if (hi < lo) return 0;
    const std::int32_t r = std::rand();
    // The span is 32-bit and wraps; the wrap is computed on unsigned values.
    const std::int32_t span =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(hi) - static_cast<std::uint32_t>(lo));
    // lo + (r - (r / span) * span): with hi == lo the quotient is multiplied by zero and the
    // raw draw is kept, on purpose, so no division by zero happens here. A span above 2^31
    // wraps negative and the signed remainder takes its magnitude.
    const std::int32_t offset = span == 0 ? r : r % span;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(lo) +
                                     static_cast<std::uint32_t>(offset));
}

double System::randf() {
    const double base = fseed + kPi;
    const double x = base * base * base * base * base;
    // Truncation toward zero into 32 bits, saturating at the ends of the range.
    std::int32_t t;
    if (std::isnan(x)) {
        t = std::numeric_limits<std::int32_t>::min();
    } else if (x >= 2147483647.0) {
        t = std::numeric_limits<std::int32_t>::max();
    } else if (x <= -2147483648.0) {
        t = std::numeric_limits<std::int32_t>::min();
    } else {
        t = static_cast<std::int32_t>(x);
    }
    fseed = x - t;
    return fseed;
}

}  // namespace mirel
