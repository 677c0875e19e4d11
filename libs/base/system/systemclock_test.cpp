#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <set>
#include <vector>

#include "base/system/system.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

// Shifts the library's clock for the life of a scope.
class ClockShift {
public:
    explicit ClockShift(double seconds) : mSeconds(seconds) { System::shiftTimeForTesting(seconds); }
    ~ClockShift() { System::shiftTimeForTesting(-mSeconds); }

private:
    double mSeconds;
};

// Clocks -------------------------------------------------------------------------------------------

TEST(Clock, TimeCountsFromLoadAndNeverStepsBack) {
    EXPECT_GE(System::getStartTime(), 0.0);
    EXPECT_LT(System::getStartTime(), 1.0);
    double last = System::getTime();
    EXPECT_GE(last, System::getStartTime());
    for (int i = 0; i < 100000; ++i) {
        const double now = System::getTime();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(Clock, TimeFollowsASleep) {
    const double before = System::getTime();
    System::sleep(50);
    const double slept = System::getTime() - before;
    EXPECT_GE(slept, 0.045);
    EXPECT_LT(slept, 2.0);
}

TEST(Clock, SystemTimeIsWallClockMilliseconds) {
    using namespace std::chrono;
    const auto before = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    const unsigned long long t = System::getSystemTime();
    const auto after = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    EXPECT_GE(t, static_cast<unsigned long long>(before));
    EXPECT_LE(t, static_cast<unsigned long long>(after));
}

TEST(Clock, CurrTimeIsTheWallClockAdvancedByTheHighResolutionClock) {
    const long wall = static_cast<long>(std::time(nullptr));
    const unsigned long t = System::getCurrTime();
    EXPECT_LE(std::labs(static_cast<long>(t) - wall), 2);
    {
        ClockShift later(100.0);
        EXPECT_LE(std::labs(static_cast<long>(System::getCurrTime()) - (wall + 100)), 2);
    }
    // Elapsed times past 2^31 seconds wrap in 32 bits rather than stick at the largest value.
    {
        ClockShift muchLater(3.0e9);
        const std::uint32_t expected = static_cast<std::uint32_t>(wall) + 3000000000u;
        EXPECT_LE(std::labs(static_cast<long>(System::getCurrTime()) - static_cast<long>(expected)), 2);
    }
}

TEST(Clock, FirstUseOfCurrTimeFromManyThreadsAgrees) {
    std::vector<unsigned long> seen(8);
    testing::runTogether(8, [&](int i) { seen[std::size_t(i)] = System::getCurrTime(); });
    for (unsigned long t : seen) EXPECT_LE(std::labs(static_cast<long>(t - seen[0])), 1);
}

// Frame clock ------------------------------------------------------------------------------------

TEST(FrameClock, AFixedRateGivesItsPeriodAtOnceAndOnEveryFrame) {
    System::setFixedFrameRate(true, 25.0);
    EXPECT_EQ(System::getFrameRate(), 25.0);
    EXPECT_DOUBLE_EQ(System::getGlobalDT(), 0.04);
    System::updateGlobalDT(true);
    EXPECT_DOUBLE_EQ(System::getGlobalDT(), 0.04);
    {
        ClockShift stall(5.0);
        System::updateGlobalDT(true);
        EXPECT_DOUBLE_EQ(System::getGlobalDT(), 0.04);
    }
    System::updateGlobalDT(false);
    EXPECT_DOUBLE_EQ(System::getGlobalDT(), 0.04);

    System::setFixedFrameRate(false, 25.0);
    EXPECT_EQ(System::getFrameRate(), 0.0);
}

TEST(FrameClock, AVariableRateTimesRenderedFramesOnTheClock) {
    System::setFixedFrameRate(false, 0.0);
    System::updateGlobalDT(false);
    const double before = System::getGlobalDT();
    System::updateGlobalDT(true);  // first rendered frame: the clock restarts, nothing else
    EXPECT_EQ(System::getGlobalDT(), before);

    System::sleep(50);
    System::updateGlobalDT(true);
    EXPECT_GE(System::getGlobalDT(), 0.045);
    EXPECT_LE(System::getGlobalDT(), 0.2);

    {
        ClockShift halfASecond(0.5);
        System::updateGlobalDT(true);
        EXPECT_EQ(System::getGlobalDT(), 0.2);  // a stall is capped
        {
            ClockShift back(-10.0);
            System::updateGlobalDT(true);
            EXPECT_EQ(System::getGlobalDT(), 0.0);  // a clock that stepped back
        }
    }
    System::updateGlobalDT(false);
}

TEST(FrameClock, APauseNeverShowsUpAsOneLongFrame) {
    System::setFixedFrameRate(false, 0.0);
    System::updateGlobalDT(false);
    System::updateGlobalDT(true);
    System::updateGlobalDT(true);
    System::updateGlobalDT(false);  // paused here...
    const double before = System::getGlobalDT();
    ClockShift pause(30.0);
    System::updateGlobalDT(true);  // ...and back
    EXPECT_EQ(System::getGlobalDT(), before);
    System::updateGlobalDT(true);
    EXPECT_GE(System::getGlobalDT(), 0.0);
    EXPECT_LT(System::getGlobalDT(), 0.2);
}

TEST(FrameClock, FrameCounterAndPlanetRadius) {
    const int frame = System::getCurrentFrame();
    EXPECT_EQ(System::setNextFrame(), frame + 1);
    EXPECT_EQ(System::getCurrentFrame(), frame + 1);
    EXPECT_EQ(System::getPlanetRadius(), 6371000.0);
}

// Random numbers ---------------------------------------------------------------------------------

struct Draws {
    std::vector<int> ints;
    std::vector<double> floats;
    bool operator==(const Draws&) const = default;
};

Draws drawAfterSeed(unsigned int seed) {
    System::seed(seed);
    Draws d;
    for (int i = 0; i < 50; ++i) d.ints.push_back(System::random(-1000, 1000));
    for (int i = 0; i < 50; ++i) d.floats.push_back(System::randf());
    return d;
}

TEST(Random, ASeedReproducesBothSequencesAndZeroMeansTheDefault) {
    EXPECT_EQ(drawAfterSeed(42), drawAfterSeed(42));
    EXPECT_FALSE(drawAfterSeed(42) == drawAfterSeed(43));
    EXPECT_EQ(drawAfterSeed(0), drawAfterSeed(3141592));
}

TEST(Random, TheUpperBoundIsExclusiveAndEveryValueBelowItOccurs) {
    System::seed(11);
    std::set<int> seen;
    for (int i = 0; i < 2000; ++i) {
        const int v = System::random(2, 10);
        ASSERT_GE(v, 2);
        ASSERT_LT(v, 10);
        seen.insert(v);
    }
    EXPECT_EQ(seen.size(), 8u);
}

TEST(Random, ADrawIsLoPlusTheRawDrawModuloTheSpan) {
    System::seed(9);
    const int v = System::random(-50, 50);
    System::seed(9);
    EXPECT_EQ(v, -50 + std::rand() % 100);
}

TEST(Random, AnEmptyRangeAddsTheRawDrawAndAReversedOneDrawsNothing) {
    System::seed(7);
    const int same = System::random(5, 5);
    System::seed(7);
    EXPECT_EQ(same, 5 + std::rand());

    System::seed(7);
    EXPECT_EQ(System::random(6, 5), 0);
    const int next = std::rand();
    System::seed(7);
    EXPECT_EQ(next, std::rand());  // random(6, 5) took no draw
}

TEST(Random, SpansBeyondThirtyOneBitsWrapWithoutOverflowing) {
    System::seed(3);
    // hi - lo is 2^32 - 1, which is -1 in 32 bits: every draw leaves no remainder.
    EXPECT_EQ(System::random(INT_MIN, INT_MAX), INT_MIN);
    const int v = System::random(-2, INT_MAX);  // span 2^31 + 1 wraps negative
    EXPECT_TRUE(v >= -2) << v;
    // lo plus a raw draw past INT_MAX wraps too.
    System::random(INT_MAX, INT_MAX);
}

TEST(Random, FloatsStayInTheUnitInterval) {
    System::seed(1);
    for (int i = 0; i < 100000; ++i) {
        const double f = System::randf();
        ASSERT_GE(f, 0.0);
        ASSERT_LT(f, 1.0);
    }
}

// Calendar texts -----------------------------------------------------------------------------------

TEST(CalendarText, AscAndCtimeGiveThePlatformTextWithItsNewline) {
    tm t{};
    t.tm_year = 2024 - 1900;
    t.tm_mon = 2;
    t.tm_mday = 5;
    t.tm_hour = 14;
    t.tm_min = 7;
    t.tm_sec = 9;
    t.tm_wday = 2;
    EXPECT_EQ(System::wasctime(&t), QStringLiteral("Tue Mar  5 14:07:09 2024\n"));

    setenv("TZ", "UTC", 1);
    tzset();
    const long epoch = 0;
    EXPECT_EQ(System::wctime(&epoch), QStringLiteral("Thu Jan  1 00:00:00 1970\n"));
}

TEST(CalendarText, NullAndUnprintableTimesGiveTheNullString) {
    EXPECT_TRUE(System::wasctime(nullptr).isNull());
    EXPECT_TRUE(System::wctime(nullptr).isNull());
    tm farFuture{};
    farFuture.tm_year = 100000;
    EXPECT_TRUE(System::wasctime(&farFuture).isNull());
    const long huge = LONG_MAX;
    EXPECT_TRUE(System::wctime(&huge).isNull());
}

}  // namespace
}  // namespace mirel
