// Helpers shared by the date-time tests.
#pragma once

#include <string>

#include "base/datetime/datetime.h"

namespace mirel::testing {

inline DateTime dt(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int tzh = 0, int tzm = 0) {
    DateTime v;
    v.set(y, mo, d, h, mi, s);
    v.tzHours = static_cast<std::int8_t>(tzh);
    v.tzMinutes = static_cast<std::int8_t>(tzm);
    return v;
}

// Every field, so that a failed comparison shows them all.
inline std::string show(const DateTime& d) {
    return std::to_string(d.year) + "-" + std::to_string(d.month) + "-" + std::to_string(d.day) + " " +
           std::to_string(d.hour) + ":" + std::to_string(d.minute) + ":" + std::to_string(d.second) + " tz " +
           std::to_string(d.tzHours) + ":" + std::to_string(d.tzMinutes);
}

}  // namespace mirel::testing
