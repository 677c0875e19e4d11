// Arithmetic helpers shared by DateTime and its text forms, and visible to their tests.
#pragma once

#include <cmath>
#include <cstdint>

#include "base/mirel_export.h"

namespace mirel::datetime_detail {

// Below this magnitude the single-precision quotient is exact, so the integer one is used.
constexpr std::int64_t kExactLimit = std::int64_t{1} << 24;

// floor(a / n) as a 32-bit float computes it. n is one of 12, 60, 24, 4, 100, 400.
inline std::int64_t floorDiv(std::int64_t a, int n) {
    if (a >= -kExactLimit && a <= kExactLimit) {
        std::int64_t q = a / n;
        if (a % n != 0 && a < 0) --q;
        return q;
    }
    // floor() without the library call: truncate, then step down below a negative fraction.
    const float x = static_cast<float>(a) / static_cast<float>(n);
    std::int64_t q = static_cast<std::int64_t>(x);
    if (static_cast<float>(q) > x) --q;
    return q;
}

// The same computation with no integer shortcut; tests hold floorDiv to it.
inline std::int64_t floorDivFloat(std::int64_t a, int n) {
    return static_cast<std::int64_t>(std::floor(static_cast<float>(a) / static_cast<float>(n)));
}

// 32-bit two's-complement wrap, the width the calendar fields are added in.
inline std::int32_t wrap32(std::int64_t v) { return static_cast<std::int32_t>(v); }

// Leap years in [a, b) under isLeapYear(); INT32_MIN <= a <= b <= INT32_MAX + 1.
MIREL_EXPORT std::int64_t leapYearsIn(std::int64_t a, std::int64_t b);

}  // namespace mirel::datetime_detail
