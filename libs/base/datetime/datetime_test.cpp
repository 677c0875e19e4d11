#include "base/datetime/datetime.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "base/datetime/datetime_p.h"
#include "base/system/system.h"

namespace mirel {
namespace {

using datetime_detail::floorDiv;
using datetime_detail::floorDivFloat;

constexpr std::int32_t kMin32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t k2p24 = std::int64_t{1} << 24;

struct Fields {
    int year, month, day, hour, minute, second;
};

DateTime make(Fields f, int tzHours = 0, int tzMinutes = 0) {
    DateTime d;
    d.set(f.year, f.month, f.day, f.hour, f.minute, f.second);
    d.tzHours = static_cast<std::int8_t>(tzHours);
    d.tzMinutes = static_cast<std::int8_t>(tzMinutes);
    return d;
}

std::string show(const DateTime& d) {
    return std::to_string(d.year) + "-" + std::to_string(d.month) + "-" + std::to_string(d.day) + " " +
           std::to_string(d.hour) + ":" + std::to_string(d.minute) + ":" + std::to_string(d.second) + " tz " +
           std::to_string(d.tzHours) + ":" + std::to_string(d.tzMinutes);
}

std::string show(Fields f) { return show(make(f)); }

// Floor division and leap years -------------------------------------------------------------

// The integer shortcut must give exactly what the float computation gives, including at the
// edge of the exact range and far beyond it, where the quotient rounds.
TEST(DateTimeArithmetic, FloorDivisionIsTheSinglePrecisionOne) {
    const int divisors[] = {4, 12, 24, 60, 100, 400};
    auto check = [&](std::int64_t a) {
        for (int n : divisors) ASSERT_EQ(floorDiv(a, n), floorDivFloat(a, n)) << a << " / " << n;
    };
    for (std::int64_t a = -3000; a <= 3000; ++a) check(a);
    for (std::int64_t edge : {k2p24, -k2p24}) {
        for (std::int64_t a = edge - 5000; a <= edge + 5000; ++a) check(a);
    }
    for (std::int64_t a = kMin32; a <= kMax32; a += 9973) check(a);
    check(kMax32);
    check(std::int64_t{1} << 40);

    // Where the float rounds, the remainder leaves its range: 2^24 + 7 rounds up to a
    // multiple of 12.
    EXPECT_EQ(floorDiv(16777223, 12), 1398102);
    EXPECT_EQ(floorDiv(-16777223, 12), -1398102);
    EXPECT_EQ(floorDiv(17999999, 60), 300000);
}

TEST(DateTimeArithmetic, LeapYearsAndMonthLengths) {
    struct Row {
        int year, month, days;
    } rows[] = {
        {2000, 2, 29}, {1900, 2, 28}, {2004, 2, 29}, {2006, 2, 28}, {0, 2, 29},   {-4, 2, 29},
        {-1, 2, 28},   {-100, 2, 28}, {-400, 2, 29}, {2006, 1, 31}, {2006, 4, 30}, {2006, 6, 30},
        {2006, 9, 30}, {2006, 11, 30}, {2006, 7, 31}, {2006, 8, 31}, {2006, 12, 31},
        // Months outside 1..12 carry into the neighbouring years.
        {2006, 0, 31}, {2006, 14, 28}, {2007, 14, 29}, {2006, -1, 30}, {2005, -10, 29},
        {2006, 25, 31},
        // Past 2^24 a year the float cannot hold fails the test by 4: 2^26 + 4 is no leap year.
        {67108868, 2, 28}, {67108872, 2, 29}, {-67108868, 2, 28},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(maximumDayInMonthFor(r.year, r.month), r.days) << r.year << "-" << r.month;
    }
    EXPECT_TRUE(isLeapYear(0));
    EXPECT_FALSE(isLeapYear(kMax32));
    EXPECT_EQ(maximumDayInMonthFor(kMin32, kMin32), maximumDayInMonthFor(kMin32, kMin32));  // no trap
}

// The shortcut counts must be the year-by-year counts, across every region of rounding.
TEST(DateTimeArithmetic, LeapYearCountsMatchYearByYear) {
    auto naive = [](std::int64_t a, std::int64_t b) {
        std::int64_t n = 0;
        for (std::int64_t y = a; y < b; ++y) n += isLeapYear(static_cast<std::int32_t>(y)) ? 1 : 0;
        return n;
    };
    const std::int64_t windows[][2] = {
        {-2500, 2500},
        {k2p24 - 3000, k2p24 + 300000},
        {-k2p24 - 300000, -k2p24 + 3000},
        {(std::int64_t{1} << 26) - 5000, (std::int64_t{1} << 26) + 5000},
        {-(std::int64_t{1} << 29) - 4000, -(std::int64_t{1} << 29) + 4000},
        {(std::int64_t{1} << 25) - 5000, (std::int64_t{1} << 25) + 5000},
        {(std::int64_t{1} << 27) - 5000, (std::int64_t{1} << 27) + 5000},
        {1677721600 - 200000, 1677721600 + 200000},  // where the quotient by 100 passes 2^24
        {-1677721600 - 200000, -1677721600 + 200000},
        {std::int64_t{kMax32} - 20000, std::int64_t{kMax32} + 1},
        {kMin32, std::int64_t{kMin32} + 20000},
    };
    for (const auto& w : windows) {
        for (std::int64_t step : {std::int64_t{1}, std::int64_t{7}, std::int64_t{997}}) {
            for (std::int64_t a = w[0]; a < w[1]; a += (w[1] - w[0]) / 5 + step) {
                const std::int64_t b = std::min(w[1], a + (w[1] - w[0]) / 3 + step);
                ASSERT_EQ(datetime_detail::leapYearsIn(a, b), naive(a, b)) << a << ".." << b;
            }
        }
    }
}

// Adding durations ---------------------------------------------------------------------------

struct AddRow {
    const char* what;
    Fields start;
    Fields delta;
    Fields expected;
};

const AddRow kAddRows[] = {
    // Month-end clamping happens before days are added.
    {"Jan 31 plus a month", {2006, 1, 31, 0, 0, 0}, {0, 1, 0, 0, 0, 0}, {2006, 2, 28, 0, 0, 0}},
    {"Jan 31 plus a month, leap", {2004, 1, 31, 0, 0, 0}, {0, 1, 0, 0, 0, 0}, {2004, 2, 29, 0, 0, 0}},
    {"Mar 31 minus a month", {2006, 3, 31, 0, 0, 0}, {0, -1, 0, 0, 0, 0}, {2006, 2, 28, 0, 0, 0}},
    {"Jan 31 plus a month and a day", {2006, 1, 31, 0, 0, 0}, {0, 1, 1, 0, 0, 0}, {2006, 3, 1, 0, 0, 0}},
    {"Feb 29 plus a year", {2004, 2, 29, 0, 0, 0}, {1, 0, 0, 0, 0, 0}, {2005, 2, 28, 0, 0, 0}},
    {"day 0 starts at 1", {2006, 5, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}, {2006, 5, 1, 0, 0, 0}},
    {"day 45 starts at the month's end", {2006, 2, 45, 0, 0, 0}, {0, 0, 1, 0, 0, 0}, {2006, 3, 1, 0, 0, 0}},
    // Carries both ways across year ends.
    {"Dec 31 plus a day", {2006, 12, 31, 0, 0, 0}, {0, 0, 1, 0, 0, 0}, {2007, 1, 1, 0, 0, 0}},
    {"midnight minus a second", {2007, 1, 1, 0, 0, 0}, {0, 0, 0, 0, 0, -1}, {2006, 12, 31, 23, 59, 59}},
    {"Jan 1 minus a day", {2006, 1, 1, 0, 0, 0}, {0, 0, -1, 0, 0, 0}, {2005, 12, 31, 0, 0, 0}},
    {"Mar 1 minus a day", {2004, 3, 1, 0, 0, 0}, {0, 0, -1, 0, 0, 0}, {2004, 2, 29, 0, 0, 0}},
    {"an hour past 23:00 on Dec 31", {2006, 12, 31, 23, 0, 0}, {0, 0, 0, 1, 0, 0}, {2007, 1, 1, 0, 0, 0}},
    {"61 minutes back", {2006, 1, 1, 0, 0, 0}, {0, 0, 0, 0, -61, 0}, {2005, 12, 31, 22, 59, 0}},
    {"December plus a month", {2006, 12, 15, 0, 0, 0}, {0, 1, 0, 0, 0, 0}, {2007, 1, 15, 0, 0, 0}},
    {"January minus 13 months", {2006, 1, 15, 0, 0, 0}, {0, -13, 0, 0, 0, 0}, {2004, 12, 15, 0, 0, 0}},
    {"a common year of days", {2006, 1, 1, 0, 0, 0}, {0, 0, 365, 0, 0, 0}, {2007, 1, 1, 0, 0, 0}},
    {"a leap year of days", {2004, 1, 1, 0, 0, 0}, {0, 0, 366, 0, 0, 0}, {2005, 1, 1, 0, 0, 0}},
    {"Feb 28 plus a day, 2000", {2000, 2, 28, 0, 0, 0}, {0, 0, 1, 0, 0, 0}, {2000, 2, 29, 0, 0, 0}},
    {"Feb 28 plus a day, 1900", {1900, 2, 28, 0, 0, 0}, {0, 0, 1, 0, 0, 0}, {1900, 3, 1, 0, 0, 0}},
    {"400 days back", {2006, 3, 1, 0, 0, 0}, {0, 0, -400, 0, 0, 0}, {2005, 1, 25, 0, 0, 0}},
    {"a day of seconds", {2006, 1, 1, 12, 0, 0}, {0, 0, 0, 0, 0, 86400}, {2006, 1, 2, 12, 0, 0}},
    {"into year 0 and before", {1, 1, 1, 0, 0, 0}, {0, 0, -367, 0, 0, 0}, {-1, 12, 31, 0, 0, 0}},
    // The XML Schema table, to whole seconds.
    {"P1Y3M5DT7H10M3S", {2000, 1, 12, 12, 13, 14}, {1, 3, 5, 7, 10, 3}, {2001, 4, 17, 19, 23, 17}},
    {"-P3M", {2000, 1, 1, 0, 0, 0}, {0, -3, 0, 0, 0, 0}, {1999, 10, 1, 0, 0, 0}},
    {"PT33H", {2000, 1, 12, 0, 0, 0}, {0, 0, 0, 33, 0, 0}, {2000, 1, 13, 9, 0, 0}},
    // Past 2^24 the month quotient rounds up and leaves month 0 behind.
    {"2^24 months", {2000, 1, 1, 0, 0, 0}, {0, 16777223, 0, 0, 0, 0}, {1400102, 0, 1, 0, 0, 0}},
    // Field sums wrap in 32 bits.
    {"year wraps", {kMax32, 6, 1, 0, 0, 0}, {1, 0, 0, 0, 0, 0}, {kMin32, 6, 1, 0, 0, 0}},
};

TEST(DateTimeArithmetic, AddFollowsTheScheduleRules) {
    for (const AddRow& r : kAddRows) {
        DateTime d = make(r.start, 3, 30);
        d.add(r.delta.year, r.delta.month, r.delta.day, r.delta.hour, r.delta.minute, r.delta.second);
        EXPECT_EQ(show(d), show(make(r.expected, 3, 30))) << r.what;  // the zone never moves
    }
}

TEST(DateTimeArithmetic, AddingADayAndAMonthDoesNotCommute) {
    DateTime dayFirst = make({2000, 3, 30, 0, 0, 0}), monthFirst = dayFirst;
    dayFirst.add(0, 0, 1, 0, 0, 0);
    dayFirst.add(0, 1, 0, 0, 0, 0);
    monthFirst.add(0, 1, 0, 0, 0, 0);
    monthFirst.add(0, 0, 1, 0, 0, 0);
    EXPECT_EQ(show(dayFirst), show(Fields{2000, 4, 30, 0, 0, 0}));
    EXPECT_EQ(show(monthFirst), show(Fields{2000, 5, 1, 0, 0, 0}));
}

TEST(DateTimeArithmetic, AddingSecondsSplitsWholeDaysTowardZero) {
    struct Row {
        Fields start;
        long long seconds;
        Fields expected;
    } rows[] = {
        {{2006, 1, 1, 0, 0, 0}, -1, {2005, 12, 31, 23, 59, 59}},
        {{2006, 1, 1, 0, 0, 0}, -86401, {2005, 12, 30, 23, 59, 59}},
        {{2006, 12, 31, 23, 59, 59}, 1, {2007, 1, 1, 0, 0, 0}},
        {{2006, 1, 1, 0, 0, 0}, 86400LL * 365 + 3661, {2007, 1, 1, 1, 1, 1}},
        {{2006, 1, 31, 0, 0, 0}, 86400LL * 30, {2006, 3, 2, 0, 0, 0}},
    };
    for (const Row& r : rows) {
        DateTime d = make(r.start);
        d += r.seconds;
        EXPECT_EQ(show(d), show(r.expected)) << r.seconds;
    }
}

// Zones ------------------------------------------------------------------------------------

TEST(DateTimeZones, NormaliseAndAdjustAcrossMidnightAndYearEnds) {
    DateTime d = make({2006, 1, 1, 1, 0, 0}, 2, 0);
    d.normalize();
    EXPECT_EQ(show(d), show(Fields{2005, 12, 31, 23, 0, 0}));

    d = make({2006, 12, 31, 20, 0, 0}, -5, -30);
    d.normalize();
    EXPECT_EQ(show(d), show(Fields{2007, 1, 1, 1, 30, 0}));

    d = make({2007, 1, 1, 1, 30, 0});
    d.adjustTimeZone(-5, -30);
    EXPECT_EQ(show(d), show(make({2006, 12, 31, 20, 0, 0}, -5, -30)));
    d.adjustTimeZone(9, 0);
    EXPECT_EQ(show(d), show(make({2007, 1, 1, 10, 30, 0}, 9, 0)));
}

TEST(DateTimeZones, EqualityAndOrderCompareInstants) {
    const DateTime a = make({2006, 1, 1, 1, 0, 0}, 2, 0);
    const DateTime b = make({2005, 12, 31, 23, 0, 0});
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a > b);
    EXPECT_FALSE(b > a);
    EXPECT_EQ(a.tzHours, 2);  // operands untouched
    EXPECT_EQ(a.hour, 1);

    // Each field decides when those before it are equal; later fields never outweigh it.
    const Fields base{2006, 6, 15, 12, 30, 30};
    const Fields later[] = {{2007, 1, 1, 0, 0, 0},    {2006, 7, 1, 0, 0, 0},   {2006, 6, 16, 0, 0, 0},
                            {2006, 6, 15, 13, 0, 0},  {2006, 6, 15, 12, 31, 0}, {2006, 6, 15, 12, 30, 31}};
    for (const Fields& f : later) {
        EXPECT_TRUE(make(f) > make(base)) << show(f);
        EXPECT_FALSE(make(base) > make(f)) << show(f);
        EXPECT_FALSE(make(f) == make(base)) << show(f);
    }
    EXPECT_FALSE(make(base) > make(base));
    // Later on the clock face but earlier as an instant.
    EXPECT_TRUE(make({2006, 6, 15, 12, 0, 0}) > make({2006, 6, 15, 13, 0, 0}, 2, 0));
}

// The absolute scale -----------------------------------------------------------------------

TEST(DateTimeScale, SecondsCountFromOneDayBeforeYearZero) {
    struct Row {
        Fields f;
        int tzHours;
        long long seconds;
    } rows[] = {
        {{0, 1, 1, 0, 0, 0}, 0, 86400},
        {{1, 1, 1, 0, 0, 0}, 0, 366LL * 86400 + 86400},
        {{2, 1, 1, 0, 0, 0}, 0, (366LL + 365 + 1) * 86400},
        {{0, 3, 1, 0, 0, 0}, 0, (60LL + 1) * 86400},
        {{0, 1, 1, 0, 0, 1}, 0, 86401},
        {{1, 1, 1, 1, 0, 0}, 1, 367LL * 86400},
        // Every year before 1 counts as year 0, but its own leap day still counts.
        {{-5, 1, 1, 0, 0, 0}, 0, 86400},
        {{-5, 3, 1, 0, 0, 0}, 0, 60LL * 86400},
        {{-4, 3, 1, 0, 0, 0}, 0, 61LL * 86400},
        // Month 13 is the table's last entry, month 0 December of the year before.
        {{0, 13, 1, 0, 0, 0}, 0, (1LL + 365 + 1) * 86400},
        {{1, 0, 1, 0, 0, 0}, 0, (1LL + 334 + 1) * 86400},
        {{2001, 1, 1, 0, 0, 0}, 0, 63145612800LL},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(make(r.f, r.tzHours).toSeconds(), r.seconds) << show(r.f);
    }
    const DateTime d = make({2006, 7, 4, 10, 20, 30});
    EXPECT_DOUBLE_EQ(d.toCurrentTime(), double(d.toSeconds()) - System::getStartTime());
}

TEST(DateTimeScale, YearsBeyondTwoToThe24CountTheirRoundedLeapDays) {
    const int y0 = (1 << 26) - 1000, y1 = (1 << 26) + 1000;
    long long days = 0;
    for (int y = y0; y < y1; ++y) days += isLeapYear(y) ? 366 : 365;
    EXPECT_EQ(make({y1, 1, 1, 0, 0, 0}).toSeconds() - make({y0, 1, 1, 0, 0, 0}).toSeconds(), days * 86400);
    // The far end of the range returns, and keeps growing.
    EXPECT_GT(make({kMax32, 1, 1, 0, 0, 0}).toSeconds(), make({kMax32 - 1, 1, 1, 0, 0, 0}).toSeconds());
}

// Durations --------------------------------------------------------------------------------

struct DiffRow {
    const char* what;
    DateTime later, earlier;
    Fields expected;
};

TEST(DateTimeDurations, SubtractionGivesYearsMonthsDaysAndTime) {
    const DiffRow rows[] = {
        {"ten seconds", make({2006, 1, 1, 0, 0, 10}), make({2006, 1, 1, 0, 0, 0}), {0, 0, 0, 0, 0, 10}},
        {"a common year", make({2007, 1, 1, 0, 0, 0}), make({2006, 1, 1, 0, 0, 0}), {1, 0, 0, 0, 0, 0}},
        {"the leap test starts after the earlier year", make({2004, 3, 1, 0, 0, 0}),
         make({2003, 3, 1, 0, 0, 0}), {1, 0, 0, 0, 0, 0}},
        {"months count m - start days", make({2006, 3, 1, 0, 0, 0}), make({2006, 1, 1, 0, 0, 0}),
         {0, 2, 2, 0, 0, 0}},
        {"time of day", make({2006, 1, 2, 1, 2, 3}), make({2006, 1, 1, 0, 0, 0}), {0, 0, 1, 1, 2, 3}},
        // The month counter wraps from 12 to 1 and a year is added.
        {"month counter wraps to 1", make({2004, 1, 20, 0, 0, 0}), make({2003, 1, 31, 0, 0, 0}),
         {1, 1, 1, 0, 0, 0}},
        {"zones cancel", make({2006, 1, 1, 2, 0, 0}, 2, 0), make({2006, 1, 1, 0, 0, 0}), {0, 0, 0, 0, 0, 0}},
        {"a second back", make({2006, 1, 1, 0, 0, 0}), make({2006, 1, 1, 0, 0, 1}), {0, 0, 0, 23, 59, 59}},
        {"a day back", make({2006, 1, 1, 0, 0, 0}), make({2006, 1, 2, 0, 0, 0}), {0, 0, 0, 0, 0, 0}},
    };
    for (const DiffRow& r : rows) {
        DateTime d = r.later;
        d -= r.earlier;
        EXPECT_EQ(show(d), show(make(r.expected, r.later.tzHours, r.later.tzMinutes))) << r.what;
    }
}

TEST(DateTimeDurations, SecondsAbove2To24RoundInTheFloatDivision) {
    DateTime d;
    d.toDuration(make({2006, 1, 1, 0, 0, 0}), 17999999);
    EXPECT_EQ(d.second, 255);  // 2^24 < 17999999: rounds up to 300000 minutes, remainder -1
    EXPECT_EQ(d.minute, 0);
    EXPECT_EQ(d.hour, 8);
    EXPECT_EQ(d.year, 0);
}

// The run-taking year count must be the year-by-year count, in and out of the exact range.
TEST(DateTimeDurations, LongDurationsCountYearsOneByOneInEffect) {
    auto yearByYear = [](const DateTime& base, long long seconds) {
        DateTime b(base);
        b.normalize();
        std::int64_t acc = 0, count = 0;
        std::int32_t y = b.year;
        for (;;) {
            y = static_cast<std::int32_t>(std::int64_t{y} + 1);
            acc += DateTime::SecsPerYear[isLeapYear(y) ? 1 : 0];
            if (acc > seconds) return count;
            ++count;
        }
    };
    const struct {
        int year;
        long long seconds;
    } rows[] = {
        {2000, 1000000000000000LL},          // ~3e7 years: through 2^24
        {-16777216 - 1000, 40000000000000LL}, // out of the rounded range into the exact one
        {kMax32 - 100, 5000000000LL},         // through the 32-bit wrap
        {1, 31622400LL * 400 + 17},
    };
    for (const auto& r : rows) {
        const DateTime base = make({r.year, 1, 1, 0, 0, 0});
        DateTime d;
        d.toDuration(base, r.seconds);
        EXPECT_EQ(d.year, static_cast<std::int32_t>(yearByYear(base, r.seconds))) << r.year;
    }
}

// Any 2^32 consecutive years hold the same seconds, and the year count wraps in 32 bits:
// adding that many seconds changes nothing. Counts up to the largest finish at once.
TEST(DateTimeDurations, AWholeCycleOfYearsChangesNothing) {
    const long long cycle =
        86400LL * (365LL * (std::int64_t{1} << 32) + datetime_detail::leapYearsIn(kMin32, std::int64_t{kMax32} + 1));
    const DateTime base = make({2000, 3, 31, 0, 0, 0});
    for (long long seconds : {0LL, 86400LL * 400 + 3723, 3000000000000000LL}) {
        DateTime once, again;
        once.toDuration(base, seconds);
        again.toDuration(base, seconds + cycle);
        EXPECT_EQ(show(again), show(once)) << seconds;
    }
    DateTime most;
    most.toDuration(base, std::numeric_limits<long long>::max());
    EXPECT_LE(most.month, 12);
}

}  // namespace
}  // namespace mirel
