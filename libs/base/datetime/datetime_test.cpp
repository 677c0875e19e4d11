#include "base/datetime/datetime.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <tuple>
#include <utility>

#include "base/datetime/datetime_p.h"
#include "base/datetime/datetime_test.h"
#include "base/system/system.h"

namespace mirel {
namespace {

using datetime_detail::floorDiv;
using testing::dt;
using testing::show;

constexpr std::int32_t kMin32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t k2p24 = std::int64_t{1} << 24;

// The shortcuts give exactly the single-precision answers: the integer quotient up to the
// edge of the exact range and beyond it, where the quotient rounds (2^24 + 7 rounds up to a
// multiple of 12), and the closed-form leap-year counts in every region of rounding.
TEST(DateTimeArithmetic, ShortcutsGiveTheSinglePrecisionAnswers) {
    auto check = [](std::int64_t a) {
        for (int n : {4, 12, 24, 60, 100, 400}) {
            ASSERT_EQ(floorDiv(a, n), datetime_detail::floorDivFloat(a, n)) << a << " / " << n;
        }
    };
    for (std::int64_t edge : {std::int64_t{0}, k2p24, -k2p24}) {
        for (std::int64_t a = edge - 5000; a <= edge + 5000; ++a) check(a);
    }
    for (std::int64_t a = kMin32; a <= kMax32; a += 9973) check(a);
    EXPECT_TRUE(floorDiv(16777223, 12) == 1398102 && floorDiv(-16777223, 12) == -1398102);

    auto count = [](std::int64_t a, std::int64_t b) {
        std::int64_t n = 0;
        for (std::int64_t y = a; y < b; ++y) n += isLeapYear(static_cast<std::int32_t>(y)) ? 1 : 0;
        ASSERT_EQ(datetime_detail::leapYearsIn(a, b), n) << a << ".." << b;
    };
    for (std::int64_t c : {std::int64_t{0}, k2p24, -k2p24, std::int64_t{1} << 25, std::int64_t{1} << 26,
                           -(std::int64_t{1} << 29), std::int64_t{1677721600}, std::int64_t{-1677721600}}) {
        for (std::int64_t a = c - 200000; a < c + 200000; a += 66667) count(a, a + 150001);
    }
    count(std::int64_t{kMax32} - 20000, std::int64_t{kMax32} + 1);
    count(kMin32, std::int64_t{kMin32} + 20000);
}

TEST(DateTimeArithmetic, LeapYearsAndMonthLengths) {
    const int rows[][3] = {
        {2000, 2, 29}, {1900, 2, 28}, {2004, 2, 29}, {0, 2, 29}, {-4, 2, 29}, {-1, 2, 28}, {-100, 2, 28}, {-400, 2, 29},
        {2006, 4, 30}, {2006, 11, 30}, {2006, 8, 31}, {2006, 12, 31},
        // Months outside 1..12 carry into the neighbouring years.
        {2006, 0, 31}, {2006, 14, 28}, {2007, 14, 29}, {2006, -1, 30}, {2005, -10, 29},
        // Past 2^24 a year a float cannot hold fails the test by 4: 2^26 + 4 is no leap year.
        {67108868, 2, 28}, {67108872, 2, 29}, {-67108868, 2, 28}};
    for (const auto& r : rows) EXPECT_EQ(maximumDayInMonthFor(r[0], r[1]), r[2]) << r[0] << "-" << r[1];
}

TEST(DateTimeArithmetic, AddFollowsTheScheduleRules) {
    struct Row {
        DateTime start;
        int delta[6];
        DateTime expected;
    } rows[] = {
        // The start day is clamped to the new month before days are added.
        {dt(2006, 1, 31), {0, 1, 0, 0, 0, 0}, dt(2006, 2, 28)}, {dt(2004, 1, 31), {0, 1, 0, 0, 0, 0}, dt(2004, 2, 29)},
        {dt(2006, 1, 31), {0, 1, 1, 0, 0, 0}, dt(2006, 3, 1)}, {dt(2004, 2, 29), {1, 0, 0, 0, 0, 0}, dt(2005, 2, 28)},
        {dt(2006, 5, 0), {0, 0, 0, 0, 0, 0}, dt(2006, 5, 1)}, {dt(2006, 2, 45), {0, 0, 1, 0, 0, 0}, dt(2006, 3, 1)},
        // Carries both ways across month and year ends.
        {dt(2006, 12, 31), {0, 0, 1, 0, 0, 0}, dt(2007, 1, 1)},
        {dt(2007, 1, 1), {0, 0, 0, 0, 0, -1}, dt(2006, 12, 31, 23, 59, 59)},
        {dt(2004, 3, 1), {0, 0, -1, 0, 0, 0}, dt(2004, 2, 29)}, {dt(2006, 12, 31, 23), {0, 0, 0, 1, 0, 0}, dt(2007, 1, 1)},
        {dt(2006, 1, 1), {0, 0, 0, 0, -61, 0}, dt(2005, 12, 31, 22, 59)},
        {dt(2006, 1, 15), {0, -13, 0, 0, 0, 0}, dt(2004, 12, 15)}, {dt(1900, 2, 28), {0, 0, 1, 0, 0, 0}, dt(1900, 3, 1)},
        {dt(2006, 3, 1), {0, 0, -400, 0, 0, 0}, dt(2005, 1, 25)}, {dt(1, 1, 1), {0, 0, -367, 0, 0, 0}, dt(-1, 12, 31)},
        // The XML Schema table, to whole seconds.
        {dt(2000, 1, 12, 12, 13, 14), {1, 3, 5, 7, 10, 3}, dt(2001, 4, 17, 19, 23, 17)},
        {dt(2000, 1, 1), {0, -3, 0, 0, 0, 0}, dt(1999, 10, 1)}, {dt(2000, 1, 12), {0, 0, 0, 33, 0, 0}, dt(2000, 1, 13, 9)},
        // Past 2^24 the month quotient rounds up and leaves month 0; sums wrap in 32 bits.
        {dt(2000, 1, 1), {0, 16777223, 0, 0, 0, 0}, dt(1400102, 0, 1)}, {dt(kMax32, 6, 1), {1, 0, 0, 0, 0, 0}, dt(kMin32, 6, 1)},
        {dt(2006, 6, 1), {0, kMax32, 0, 0, 0, 0}, dt(-178954970, 69, 1)},
    };
    for (Row& r : rows) {
        DateTime d = r.start;
        d.tzHours = 3;  // the zone never moves
        d.add(r.delta[0], r.delta[1], r.delta[2], r.delta[3], r.delta[4], r.delta[5]);
        r.expected.tzHours = 3;
        EXPECT_EQ(show(d), show(r.expected)) << "from " << show(r.start);
    }

    // Seconds are split into whole days toward zero and the rest.
    DateTime d = dt(2006, 1, 1);
    d += -86401;
    EXPECT_EQ(show(d), show(dt(2005, 12, 30, 23, 59, 59)));
    d += 86400LL * 367 + 3662;
    EXPECT_EQ(show(d), show(dt(2007, 1, 2, 1, 1, 1)));
}

TEST(DateTimeZones, NormaliseAdjustAndCompareInstants) {
    DateTime d = dt(2006, 1, 1, 1, 0, 0, 2, 0);
    d.normalize();
    EXPECT_EQ(show(d), show(dt(2005, 12, 31, 23)));
    d = dt(2006, 12, 31, 20, 0, 0, -5, -30);
    d.normalize();
    EXPECT_EQ(show(d), show(dt(2007, 1, 1, 1, 30)));
    d.adjustTimeZone(-5, -30);
    EXPECT_EQ(show(d), show(dt(2006, 12, 31, 20, 0, 0, -5, -30)));
    d.adjustTimeZone(9, 0);
    EXPECT_EQ(show(d), show(dt(2007, 1, 1, 10, 30, 0, 9, 0)));
    d.adjustTimeZone(9, 45);  // the same hours: the minutes alone still move the time
    EXPECT_EQ(show(d), show(dt(2007, 1, 1, 11, 15, 0, 9, 45)));

    const DateTime a = dt(2006, 1, 1, 1, 0, 0, 2, 0), b = dt(2005, 12, 31, 23);
    EXPECT_TRUE(a == b && !(a > b) && !(b > a));
    EXPECT_EQ(show(a), show(dt(2006, 1, 1, 1, 0, 0, 2, 0)));  // operands untouched
    // Each field decides when those before it are equal; later ones never outweigh it.
    const DateTime base = dt(2006, 6, 15, 12, 30, 30);
    for (const DateTime& later : {dt(2007, 1, 1), dt(2006, 7, 1), dt(2006, 6, 16), dt(2006, 6, 15, 13),
                                  dt(2006, 6, 15, 12, 31), dt(2006, 6, 15, 12, 30, 31)}) {
        EXPECT_TRUE(later > base && !(base > later) && !(later == base)) << show(later);
    }
    EXPECT_TRUE(dt(2006, 6, 15, 12) > dt(2006, 6, 15, 13, 0, 0, 2, 0));  // later face, earlier instant
}

TEST(DateTimeScale, SecondsCountFromOneDayBeforeYearZero) {
    const std::pair<DateTime, long long> rows[] = {  // the value and its seconds in days
        {dt(0, 1, 1), 1}, {dt(1, 1, 1), 367}, {dt(2, 1, 1), 366 + 365 + 1}, {dt(0, 3, 1), 61},
        {dt(1, 1, 1, 1, 0, 0, 1, 0), 367}, {dt(2001, 1, 1), 730852},
        // Every year before 1 counts as year 0, but its own leap day still counts.
        {dt(-5, 1, 1), 1}, {dt(-5, 3, 1), 60}, {dt(-4, 3, 1), 61},
        // Month 13 is the table's last entry; month 0 is December of the year before.
        {dt(0, 13, 1), 1 + 365 + 1}, {dt(-1, 13, 1), 365 + 1}, {dt(1, 0, 1), 1 + 334 + 1}};
    for (const auto& [d, days] : rows) EXPECT_EQ(d.toSeconds(), days * 86400) << show(d);
    EXPECT_EQ(dt(0, 1, 1, 1, 2, 3).toSeconds(), 86400 + 3723);
    EXPECT_DOUBLE_EQ(dt(2006, 7, 4).toCurrentTime(), double(dt(2006, 7, 4).toSeconds()) - System::getStartTime());

    long long days = 0;
    for (int y = (1 << 26) - 1000; y < (1 << 26) + 1000; ++y) days += isLeapYear(y) ? 366 : 365;
    EXPECT_EQ(dt((1 << 26) + 1000, 1, 1).toSeconds() - dt((1 << 26) - 1000, 1, 1).toSeconds(), days * 86400);
}

TEST(DateTimeDurations, SubtractionGivesYearsMonthsDaysAndTime) {
    const std::tuple<DateTime, DateTime, DateTime> rows[] = {  // later - earlier = expected
        // A common year; the leap test starts at the year after the earlier one.
        {dt(2007, 1, 1), dt(2006, 1, 1), dt(1, 0, 0)}, {dt(2004, 3, 1), dt(2003, 3, 1), dt(1, 0, 0)},
        // Months count m - start days; the time of day; the month counter wraps to 1.
        {dt(2006, 3, 1), dt(2006, 1, 1), dt(0, 2, 2)}, {dt(2006, 1, 2, 1, 2, 3), dt(2006, 1, 1), dt(0, 0, 1, 1, 2, 3)},
        {dt(2004, 1, 20), dt(2003, 1, 31), dt(1, 1, 1)},
        // Zones cancel, and this object's zone stays; backwards by a second and by a day.
        {dt(2006, 1, 1, 2, 0, 0, 2, 0), dt(2006, 1, 1), dt(0, 0, 0, 0, 0, 0, 2, 0)},
        {dt(2006, 1, 1), dt(2006, 1, 1, 0, 0, 1), dt(0, 0, 0, 23, 59, 59)}, {dt(2006, 1, 1), dt(2006, 1, 2), dt(0, 0, 0)},
    };
    for (const auto& [later, earlier, expected] : rows) {
        DateTime d = later;
        d -= earlier;
        EXPECT_EQ(show(d), show(expected)) << show(later) << " - " << show(earlier);
    }
    // 17999999 s is past 2^24: the minutes round up to 300000 and the seconds come out -1.
    DateTime d;
    d.toDuration(dt(2006, 1, 1), 17999999);
    EXPECT_EQ(show(d), show(dt(0, 7, 3, 8, 0, 255)));
}

// Runs of years taken at once must give the year-by-year count, through 2^24 and the wrap;
// any 2^32 consecutive years hold the same seconds, so adding them changes nothing.
TEST(DateTimeDurations, LongDurationsCountYearsOneByOneInEffect) {
    auto yearByYear = [](std::int32_t y, long long seconds) {
        std::int64_t acc = 0, count = 0;
        for (;; ++count) {
            y = static_cast<std::int32_t>(std::int64_t{y} + 1);
            acc += DateTime::SecsPerYear[isLeapYear(y) ? 1 : 0];
            if (acc > seconds) return static_cast<std::int32_t>(count);
        }
    };
    const std::pair<int, long long> rows[] = {{2000, 1000000000000000LL}, {-16777216 - 1000, 40000000000000LL},
                                              {kMax32 - 100, 5000000000LL}, {1, 31622400LL * 400 + 17}};
    for (const auto& [year, seconds] : rows) {
        DateTime d;
        d.toDuration(dt(year, 1, 1), seconds);
        EXPECT_EQ(d.year, yearByYear(year, seconds)) << year;
    }

    const long long cycle =
        86400LL * (365LL * (std::int64_t{1} << 32) + datetime_detail::leapYearsIn(kMin32, std::int64_t{kMax32} + 1));
    for (long long seconds : {0LL, 86400LL * 400 + 3723, 3000000000000000LL}) {
        DateTime once, again;
        once.toDuration(dt(2000, 3, 31), seconds);
        again.toDuration(dt(2000, 3, 31), seconds + cycle);
        EXPECT_EQ(show(again), show(once)) << seconds;
    }
    DateTime most;
    most.toDuration(dt(2000, 3, 31), std::numeric_limits<long long>::max());  // finishes at once
    EXPECT_LE(most.month, 12);
}

}  // namespace
}  // namespace mirel
