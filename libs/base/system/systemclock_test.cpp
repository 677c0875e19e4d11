#include <gtest/gtest.h>

#include <chrono>
#include <climits>
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

// Clocks -------------------------------------------------------------------------------------

TEST(Clock, TimeCountsFromLoadAtThePaceOfTheMonotonicClock) {
    EXPECT_LT(System::getStartTime(), 1.0) << "the clock does not count from the library's load";
    // Bracketed by the monotonic clock read just before and after: exact, however busy the machine.
    using std::chrono::steady_clock;
    const auto outerStart = steady_clock::now();
    const double from = System::getTime();
    const auto innerStart = steady_clock::now();
    System::sleep(50);
    const auto innerEnd = steady_clock::now();
    const double took = System::getTime() - from;
    const auto outerEnd = steady_clock::now();
    EXPECT_GE(took, std::chrono::duration<double>(innerEnd - innerStart).count() - 1e-6);
    EXPECT_LE(took, std::chrono::duration<double>(outerEnd - outerStart).count() + 1e-6);
}

TEST(Clock, WallClocksInMillisecondsAndInSecondsAdvancedByTheHighResolutionClock) {
    using namespace std::chrono;
    const auto before = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    const unsigned long long ms = System::getSystemTime();
    const auto after = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    EXPECT_TRUE(ms >= static_cast<unsigned long long>(before) && ms <= static_cast<unsigned long long>(after));

    // The first use of getCurrTime comes from many threads at once and must agree.
    std::vector<unsigned long> seen(8);
    testing::runTogether(8, [&](int i) { seen[std::size_t(i)] = System::getCurrTime(); });
    for (unsigned long t : seen) EXPECT_LE(std::labs(static_cast<long>(t - seen[0])), 1);
    const long wall = static_cast<long>(std::time(nullptr));
    EXPECT_LE(std::labs(static_cast<long>(System::getCurrTime()) - wall), 2);
    {
        ClockShift later(100.0);
        EXPECT_LE(std::labs(static_cast<long>(System::getCurrTime()) - (wall + 100)), 2);
    }
    // Elapsed times past 2^31 seconds wrap in 32 bits rather than stick at the largest value.
    ClockShift muchLater(3.0e9);
    const std::uint32_t expected = static_cast<std::uint32_t>(wall) + 3000000000u;
    EXPECT_LE(std::labs(static_cast<long>(System::getCurrTime()) - static_cast<long>(expected)), 2);
}

// Frame clock ----------------------------------------------------------------------------------

TEST(FrameClock, AFixedRateGivesItsPeriodAtOnceAndOnEveryFrame) {
    System::setFixedFrameRate(true, 25.0);
    EXPECT_DOUBLE_EQ(System::getGlobalDT(), 0.04);
    {
        ClockShift stall(5.0);
        System::updateGlobalDT(true);
        EXPECT_DOUBLE_EQ(System::getGlobalDT(), 0.04);
    }
    System::setFixedFrameRate(false, 25.0);
    EXPECT_EQ(System::getFrameRate(), 0.0);

    const int frame = System::getCurrentFrame();
    EXPECT_EQ(System::setNextFrame(), frame + 1);
    EXPECT_EQ(System::getCurrentFrame(), frame + 1);
    EXPECT_EQ(System::getPlanetRadius(), 6371000.0);
}

TEST(FrameClock, AVariableRateTimesRenderedFramesButNeverAPause) {
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
        ClockShift back(-10.0);
        System::updateGlobalDT(true);
        EXPECT_EQ(System::getGlobalDT(), 0.0);  // a clock that stepped back
    }
    System::updateGlobalDT(false);  // paused here...
    ClockShift pause(30.0);
    System::updateGlobalDT(true);  // ...and back: the stepped-back frame's 0 stands
    EXPECT_EQ(System::getGlobalDT(), 0.0);
    System::updateGlobalDT(true);
    EXPECT_LT(System::getGlobalDT(), 0.2);
}

// Random numbers -------------------------------------------------------------------------------

TEST(Random, ASeedReproducesBothSequencesAndZeroMeansTheDefault) {
    auto draws = [](unsigned int seed) {
        System::seed(seed);
        std::vector<double> d;
        for (int i = 0; i < 50; ++i) d.push_back(System::random(-1000, 1000));
        for (int i = 0; i < 50000; ++i) d.push_back(System::randf());
        return d;
    };
    const std::vector<double> d = draws(42);
    EXPECT_EQ(d, draws(42));
    EXPECT_NE(d, draws(43));
    EXPECT_EQ(draws(0), draws(3141592));
    for (std::size_t i = 50; i < d.size(); ++i) ASSERT_TRUE(d[i] >= 0.0 && d[i] < 1.0) << d[i];
}

// A draw is lo plus the raw draw modulo the span; an empty span adds the raw draw, a reversed
// one gives 0 without drawing, and spans past 31 bits wrap without overflowing.
TEST(Random, ADrawIsLoPlusTheRawDrawModuloTheSpan) {
    System::seed(9);
    const int raw = std::rand();
    System::seed(9);
    EXPECT_EQ(System::random(-50, 50), -50 + raw % 100);
    System::seed(9);
    EXPECT_EQ(System::random(5, 5), 5 + raw);
    System::seed(9);
    EXPECT_EQ(System::random(6, 5), 0);
    EXPECT_EQ(std::rand(), raw);
    // 2^32 - 1 is -1 in 32 bits: no draw leaves a remainder.
    EXPECT_EQ(System::random(INT_MIN, INT_MAX), INT_MIN);
    System::random(INT_MAX, INT_MAX);  // lo plus a raw draw wraps; UBSan watches

    std::set<int> seen;
    for (int i = 0; i < 2000; ++i) seen.insert(System::random(2, 10));
    EXPECT_EQ(seen, (std::set<int>{2, 3, 4, 5, 6, 7, 8, 9}));
}

// Calendar texts -------------------------------------------------------------------------------

TEST(CalendarText, ThePlatformTextWithItsNewlineOrTheNullString) {
    const time_t at = 1709647629;
    tm t = *std::gmtime(&at);
    EXPECT_EQ(System::wasctime(&t), QStringLiteral("Tue Mar  5 14:07:09 2024\n"));
    setenv("TZ", "UTC", 1);
    tzset();
    const long epoch = 0, huge = LONG_MAX;
    EXPECT_EQ(System::wctime(&epoch), QStringLiteral("Thu Jan  1 00:00:00 1970\n"));
    EXPECT_TRUE(System::wasctime(nullptr).isNull());
    EXPECT_TRUE(System::wctime(nullptr).isNull());
    EXPECT_TRUE(System::wctime(&huge).isNull());
    t.tm_year = 100000;
    EXPECT_TRUE(System::wasctime(&t).isNull());
}

}  // namespace
}  // namespace mirel
