// The input, as UTF-8, goes through the date-time reader. A refusal must carry the whole
// text in its message; an accepted value must write a short ASCII text that, wherever the
// written form is one the reader takes, reads back to the same fields. The arithmetic on
// whatever was read must finish and agree with itself.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/datetime/datetimetext.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

bool sameFields(const mirel::DateTime& a, const mirel::DateTime& b) {
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
           a.minute == b.minute && a.second == b.second && a.tzHours == b.tzHours && a.tzMinutes == b.tzMinutes;
}

// Whether the writer's text for `d` is one the reader accepts: two-character fields where
// the reader wants exactly two, and no zone written with "-" (its hours take three).
bool readsBack(const mirel::DateTime& d) {
    const bool dateTime = d.hour || d.minute || d.second || d.tzHours || d.tzMinutes;
    if (dateTime) {
        const bool zoneOk = (d.tzHours == 0 && d.tzMinutes == 0) ||
                            (d.tzHours > 0 && d.tzHours < 100 && d.tzMinutes >= 0 && d.tzMinutes < 100);
        return d.day < 100 && d.hour < 100 && d.minute < 100 && zoneOk;
    }
    if (d.month == 1 && d.day == 1) return true;
    return d.month < 100 && d.day < 100;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    mirel::DateTime d;
    try {
        text >> d;
    } catch (const QString& message) {
        require(message == QStringLiteral("Could not parse time value ") + text);
        return 0;
    }

    const QString written = d.toString();
    require(!written.isEmpty() && written.size() <= 40);
    for (QChar c : written) require(c.unicode() > 0x20 && c.unicode() < 0x7F);
    if (readsBack(d)) {
        mirel::DateTime back;
        try {
            written >> back;
        } catch (const QString&) {
            require(false);
        }
        require(sameFields(back, d));
        require(back.toString() == written);
    }

    require(d == d && !(d > d));
    mirel::DateTime zero(d);
    zero -= d;
    require(zero.year == 0 && zero.month == 0 && zero.day == 0 && zero.hour == 0 && zero.minute == 0 &&
            zero.second == 0);
    mirel::DateTime later(d);
    later.add(0, 1, 1, 1, 1, 1);
    require(later > d || d.year > 2147483000);  // only a wrap of the year can put it earlier
    return 0;
}
