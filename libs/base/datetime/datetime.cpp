// Calendar arithmetic of DateTime. Sums of fields are taken in 32 bits, wrapping, and every
// quotient goes through floorDiv(), so large values round the way they always have.
#include "base/datetime/datetime.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "base/datetime/datetime_p.h"
#include "base/system/system.h"

namespace mirel {

using datetime_detail::floorDiv;
using datetime_detail::kExactLimit;
using datetime_detail::wrap32;

const int DateTime::kCumulativeDays[13] = {0,   31,  59,  90,  120, 151, 181,
                                           212, 243, 273, 304, 334, 365};
const std::int64_t DateTime::SecsPerYear[2] = {31536000, 31622400};

namespace {

constexpr std::int64_t kSecsPerDay = 86400;
constexpr std::int64_t kInt32Min = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t kInt32Max = std::numeric_limits<std::int32_t>::max();

std::int64_t exactFloorDiv(std::int64_t x, std::int64_t n) { return x / n - (x % n != 0 && x < 0 ? 1 : 0); }

bool divisible(std::int64_t a, int n) { return a - n * floorDiv(a, n) == 0; }

// Month and year carried the way add() renormalises them: `t` is a zero-based month.
void carryMonth(std::int32_t& year, std::uint8_t& month, std::int64_t t) {
    const std::int64_t q = floorDiv(t, 12);
    month = static_cast<std::uint8_t>(t - 12 * q + 1);
    year = wrap32(year + q);
}

// Leap years in [a, b) where every year is exact: the usual closed form.
std::int64_t exactLeapYearsIn(std::int64_t a, std::int64_t b) {
    auto upTo = [](std::int64_t x) { return exactFloorDiv(x, 4) - exactFloorDiv(x, 100) + exactFloorDiv(x, 400); };
    return upTo(b - 1) - upTo(a - 1);
}

// Multiples of `m` in [lo, hi).
std::int64_t multiplesIn(std::int64_t lo, std::int64_t hi, std::int64_t m) {
    return exactFloorDiv(hi - 1, m) - exactFloorDiv(lo - 1, m);
}

// Past 2^24 a year passes the test by 4 only when a float holds it exactly (a rounded year
// gives back the rounded value, times 4), so within a binade of spacing s only multiples of
// max(s, 4) can be leap years. For those, the tests by 400 and by 100 are exact, except
// for a quotient by 100 above 2^24; that needs a year above 1.6e9, where s is 128 and
// every multiple of 100 is one of 400 anyway. So a binade counts the Gregorian leap years
// among its multiples of s.
std::int64_t roundedLeapYearsIn(std::int64_t a, std::int64_t b) {
    std::int64_t count = 0;
    for (std::int64_t y = a; y < b;) {
        const std::uint64_t magnitude = y < 0 ? std::uint64_t(-y) : std::uint64_t(y);
        const int exponent = std::bit_width(magnitude) - 1;
        const std::int64_t step = exponent > 25 ? std::int64_t{1} << (exponent - 23) : 4;
        const std::int64_t binadeEnd = y > 0 ? std::int64_t{1} << (exponent + 1) : 1 - (std::int64_t{1} << exponent);
        const std::int64_t end = std::min(b, binadeEnd);
        count += multiplesIn(y, end, step) - multiplesIn(y, end, 25 * step) +
                 multiplesIn(y, end, 25 * std::max<std::int64_t>(step, 16));
        y = end;
    }
    return count;
}

std::int64_t secondsOfYears(std::int64_t first, std::int64_t count) {
    return count * DateTime::SecsPerYear[0] + kSecsPerDay * datetime_detail::leapYearsIn(first, first + count);
}

// The seconds of 2^32 consecutive years, wherever they start: every year the test can see.
std::int64_t secondsOfAllYears() {
    static const std::int64_t seconds = secondsOfYears(kInt32Min, std::int64_t{1} << 32);
    return seconds;
}

}  // namespace

std::int64_t datetime_detail::leapYearsIn(std::int64_t a, std::int64_t b) {
    std::int64_t count = 0;
    const std::int64_t lo = std::max(a, -kExactLimit), hi = std::min(b, kExactLimit + 1);
    if (lo < hi) count += exactLeapYearsIn(lo, hi);
    if (a < -kExactLimit) count += roundedLeapYearsIn(a, std::min(b, -kExactLimit));
    if (b > kExactLimit + 1) count += roundedLeapYearsIn(std::max(a, kExactLimit + 1), b);
    return count;
}

bool isLeapYear(int year) {
    return divisible(year, 4) && (divisible(year, 400) || !divisible(year, 100));
}

int maximumDayInMonthFor(int year, int month) {
    const std::int64_t t = wrap32(std::int64_t{month} - 1);
    const std::int64_t q = floorDiv(t, 12);
    const std::int64_t m = t - 12 * q;
    const std::int32_t y = wrap32(year + q);
    switch (m) {
    case 1:
        return isLeapYear(y) ? 29 : 28;
    case 3:
    case 5:
    case 8:
    case 10:
        return 30;
    default:
        return 31;
    }
}

void DateTime::set(int y, int mo, int d, int h, int mi, int s) {
    year = y;
    month = static_cast<std::uint8_t>(mo);
    day = static_cast<std::uint8_t>(d);
    hour = static_cast<std::uint8_t>(h);
    minute = static_cast<std::uint8_t>(mi);
    second = static_cast<std::uint8_t>(s);
}

void DateTime::add(int years, int months, int days, int hours, int minutes, int seconds) {
    carryMonth(year, month, wrap32(std::int64_t{month} + months - 1));
    year = wrap32(std::int64_t{year} + years);

    std::int64_t t = wrap32(std::int64_t{second} + seconds);
    std::int64_t carry = floorDiv(t, 60);
    second = static_cast<std::uint8_t>(t - 60 * carry);
    t = wrap32(minute + minutes + carry);
    carry = floorDiv(t, 60);
    minute = static_cast<std::uint8_t>(t - 60 * carry);
    t = wrap32(hour + hours + carry);
    carry = floorDiv(t, 24);
    hour = static_cast<std::uint8_t>(t - 24 * carry);

    // The start day is clamped to the new month before any day is added: Jan 31 plus one
    // month is the end of February, not early March.
    const int last = maximumDayInMonthFor(year, month);
    const int start = day > last ? last : (day == 0 ? 1 : day);
    std::int32_t d = wrap32(start + std::int64_t{days} + carry);
    for (;;) {
        if (d < 1) {
            d += maximumDayInMonthFor(year, month - 1);
            carryMonth(year, month, std::int64_t{month} - 2);
        } else if (const int max = maximumDayInMonthFor(year, month); d > max) {
            d -= max;
            carryMonth(year, month, month);
        } else {
            day = static_cast<std::uint8_t>(d);
            return;
        }
    }
}

void DateTime::normalize() {
    if (tzHours != 0 || tzMinutes != 0) {
        add(0, 0, 0, -tzHours, -tzMinutes, 0);
        tzHours = 0;
        tzMinutes = 0;
    }
}

void DateTime::adjustTimeZone(int hours, int minutes) {
    if (hours == tzHours && minutes == tzMinutes) return;
    add(0, 0, 0, hours - tzHours, minutes - tzMinutes, 0);
    tzHours = static_cast<std::int8_t>(hours);
    tzMinutes = static_cast<std::int8_t>(minutes);
}

DateTime& DateTime::operator+=(long long seconds) {
    const long long days = seconds / 86400;
    const long long rest = seconds - 86400 * days;
    add(0, 0, static_cast<int>(days), 0, 0, static_cast<int>(rest));
    return *this;
}

DateTime& DateTime::operator-=(const DateTime& other) {
    toDuration(other, toSeconds() - other.toSeconds());
    return *this;
}

void DateTime::toDuration(const DateTime& base, long long seconds) {
    DateTime b(base);
    b.normalize();

    // Whole years from the one after b's: the first year whose seconds overshoot stops the
    // count. Runs of years are taken at once when they fit, so that a count of millions of
    // years does not walk them one by one; the answer is the one-by-one answer.
    std::int64_t count = 0;  // years so far, before the wrap to 32 bits
    std::int64_t y = b.year;
    std::int64_t acc = 0;  // seconds of the whole years counted; never above `seconds`
    const std::int64_t cycle = seconds >= (std::int64_t{1} << 32) * SecsPerYear[0] ? secondsOfAllYears() : 0;
    if (cycle > 0 && seconds - acc >= cycle) {
        const std::int64_t cycles = (seconds - acc) / cycle;
        acc += cycles * cycle;
        count += cycles << 32;
    }
    for (;;) {
        for (const std::int64_t run : {std::int64_t{1} << 24, std::int64_t{1} << 16, std::int64_t{1} << 8,
                                       std::int64_t{1} << 4, std::int64_t{1}}) {
            while (y + run <= kInt32Max) {
                const std::int64_t s = secondsOfYears(y + 1, run);
                if (s > seconds - acc) break;
                acc += s;
                y += run;
                count += run;
            }
        }
        y = wrap32(y + 1);
        const std::int64_t last = SecsPerYear[isLeapYear(static_cast<std::int32_t>(y)) ? 1 : 0];
        if (last > seconds - acc) break;
        acc += last;
        ++count;
    }
    year = wrap32(count);

    std::int64_t r = seconds - acc;
    std::int64_t q = floorDiv(r, 60);
    second = static_cast<std::uint8_t>(r - 60 * q);
    r = q;
    q = floorDiv(r, 60);
    minute = static_cast<std::uint8_t>(r - 60 * q);
    r = q;
    q = floorDiv(r, 24);
    hour = static_cast<std::uint8_t>(r - 24 * q);
    std::int64_t daysLeft = q;

    month = 0;
    day = 0;
    std::int64_t start = b.day;
    while (daysLeft >= 1) {
        const int m = maximumDayInMonthFor(wrap32(std::int64_t{b.year} + year), b.month + month);
        if (daysLeft + start <= m) {
            day = static_cast<std::uint8_t>(daysLeft);
            break;
        }
        daysLeft -= m - start;
        // The counter wraps to 1, not 0: kept as it has always been.
        if (++month == 13) {
            month = 1;
            year = wrap32(std::int64_t{year} + 1);
        }
        start = 1;
    }
}

bool DateTime::operator==(const DateTime& other) const {
    DateTime a(*this), b(other);
    a.normalize();
    b.normalize();
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
           a.minute == b.minute && a.second == b.second;
}

bool DateTime::operator>(const DateTime& other) const {
    DateTime a(*this), b(other);
    a.normalize();
    b.normalize();
    if (a.year != b.year) return a.year > b.year;
    if (a.month != b.month) return a.month > b.month;
    if (a.day != b.day) return a.day > b.day;
    if (a.hour != b.hour) return a.hour > b.hour;
    if (a.minute != b.minute) return a.minute > b.minute;
    return a.second > b.second;
}

long long DateTime::toSeconds() const {
    DateTime c(*this);
    c.normalize();
    // Months 1 to 13 index the table; others, which the table lacks, carry into the year.
    if (c.month < 1 || c.month > 13) carryMonth(c.year, c.month, std::int64_t{c.month} - 1);
    std::int64_t days = 0;
    if (c.year > 0) days = 365 * std::int64_t{c.year} + datetime_detail::leapYearsIn(0, c.year);
    if (isLeapYear(c.year) && c.month >= 3) ++days;
    // Day itself, not day - 1: the scale starts one day early, and stays that way.
    days += kCumulativeDays[c.month - 1] + c.day;
    return ((days * 24 + c.hour) * 60 + c.minute) * 60 + c.second;
}

double DateTime::toCurrentTime() const {
    return static_cast<double>(toSeconds()) - System::getStartTime();
}

}  // namespace mirel
