// DateTime: a proleptic Gregorian date and time of day to the whole second, with the zone
// offset it was written in, and the XML Schema arithmetic on it (adding a duration, time
// zones, the duration between two values). Read and write its text forms with the
// operators of datetimetext.h.
//
// The same type carries durations: after `a -= b`, `a` holds years, months, days, hours,
// minutes and seconds instead of a calendar position.
//
// Some answers are kept as they always were, on purpose:
// - Quotients by 12, 60, 24, 4, 100 and 400 are floor divisions done in single-precision
//   floating point: exact below 2^24 in magnitude, rounded like 32-bit floats above.
// - toSeconds() counts every year before 1 as year 0, and day 1 of year 0 as 86400.
// - A duration's month counter wraps from 12 to 1, not to 0.
// - Fields are not range-checked: a month of 13 read from text stays 13.
//
// A value: not locked, one thread at a time per instance.
#pragma once

#include <QString>

#include <cstdint>

#include "base/foundation/referent.h"
#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT DateTime : public Referent {
public:
    // Year 0, January 1, 00:00:00, UTC; reference count 0.
    DateTime() = default;
    DateTime(const DateTime&) = default;
    DateTime& operator=(const DateTime&) = default;

    // Assigns the six fields, each cut to its width (month 257 becomes 1). The zone stays.
    void set(int year, int month, int day, int hour, int minute, int second);
    // Adds a duration whose parts may be negative: months first (the start day is then
    // clamped to the new month's end), then seconds, minutes and hours with their carries,
    // then days walked month by month. The zone is not changed.
    void add(int years, int months, int days, int hours, int minutes, int seconds);
    // Re-expresses the value in UTC.
    void normalize();
    // Re-expresses the same instant at zone offset `hours`:`minutes` east of UTC.
    void adjustTimeZone(int hours, int minutes);

    // Adds `seconds` (may be negative) as whole days plus the rest.
    DateTime& operator+=(long long seconds);
    // Turns this object into the duration from `other` to this one; zone fields stay.
    DateTime& operator-=(const DateTime& other);
    // Turns this object into the duration of `seconds` counted from `base`.
    void toDuration(const DateTime& base, long long seconds);

    // Same instant, zones taken into account. Neither operand changes.
    bool operator==(const DateTime& other) const;
    bool operator!=(const DateTime& other) const { return !(*this == other); }
    // Strictly later instant, zones taken into account.
    bool operator>(const DateTime& other) const;

    // Seconds on this type's own absolute scale: 0000-01-01T00:00:00Z is 86400.
    long long toSeconds() const;
    // toSeconds() minus System::getStartTime(), as a double.
    double toCurrentTime() const;

    // The shortest XML Schema form that keeps the value: gYear, gYearMonth, date or
    // dateTime (see datetimetext.h). Reentrant: the text is formatted per call.
    QString toString() const;

    std::int32_t year = 0;
    std::uint8_t month = 1;
    std::uint8_t day = 1;
    std::uint8_t hour = 0;
    std::uint8_t minute = 0;
    std::uint8_t second = 0;
    // Offset east of UTC; the minutes carry the sign of the hours when those are not 0.
    std::int8_t tzHours = 0;
    std::int8_t tzMinutes = 0;

    // Days before each month of a common year; entry 12 is the whole year.
    static const int kCumulativeDays[13];
    // Seconds in a common year and in a leap year, indexed by the leap-year test.
    static const std::int64_t SecsPerYear[2];
};

// Days in `month` of `year`; months outside 1..12 carry into the neighbouring years
// (0 is December of the year before, 13 January of the year after).
MIREL_EXPORT int maximumDayInMonthFor(int year, int month);

// The leap-year test the type uses: divisible by 4 and either by 400 or not by 100, each
// divisibility tested with the single-precision floor division. Year 0 is a leap year.
MIREL_EXPORT bool isLeapYear(int year);

}  // namespace mirel
