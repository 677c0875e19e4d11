// The input, as UTF-8, goes to the four coordinate parsers. Accepted numbers must lie in
// the ranges the rules allow, a failure must leave the targets alone, and the scanner
// must agree with the regular expressions on the answer and on every number stored.
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/coords/coordpatterns_p.h"
#include "base/coords/latlngpair.h"
#include "base/coords/latlngvalue.h"

namespace {

constexpr double kUntouched = -999.0;
// 180 degrees, 60 minutes and 60 seconds, plus a decimal comma's fraction of at most 1.
constexpr double kMaxValue = 180.0 + 60.0 / 60.0 + 61.0 / 3600.0;

void require(bool condition) {
    if (!condition) std::abort();
}

bool same(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

bool magnitude(double v) { return v >= 0 && v <= kMaxValue; }
bool signedMagnitude(double v) { return v >= -kMaxValue && v <= kMaxValue; }

template <class Single>
void checkSingle(const QString& text, bool (*byPatterns)(Single&, const QString&)) {
    double fast = kUntouched, slow = kUntouched;
    Single a(&fast), b(&slow);
    const bool ok = a.ParseFrom(text);
    require(ok == byPatterns(b, text));
    require(same(fast, slow));
    require(ok ? signedMagnitude(fast) : same(fast, kUntouched));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    double fast = kUntouched, slow = kUntouched;
    mirel::LatLngValue a(&fast), b(&slow);
    const bool ok = a.ParseFrom(text);
    require(ok == mirel::coords::parseValueByPatterns(b, text));
    require(same(fast, slow));
    require(ok ? magnitude(fast) : same(fast, kUntouched));

    double lat = kUntouched, lng = kUntouched, lat2 = kUntouched, lng2 = kUntouched;
    mirel::LatLngPair p(&lat, &lng), q(&lat2, &lng2);
    const bool pair = p.ParseFrom(text);
    require(pair == mirel::coords::parsePairByPatterns(q, text));
    require(same(lat, lat2) && same(lng, lng2));
    if (pair) {
        require(lat >= -90 && lat <= 90 && signedMagnitude(lng));
    } else {
        require(same(lat, kUntouched) && same(lng, kUntouched));
    }

    checkSingle<mirel::LatValue>(text, mirel::coords::parseLatByPatterns);
    checkSingle<mirel::LngValue>(text, mirel::coords::parseLngByPatterns);
    return 0;
}
