// The coordinate pattern texts and the rules shared by the pattern-matching path and the
// hand-written scanner in front of it. Internal to the library and its tests.
#pragma once

#include <QString>
#include <QStringView>

#include <atomic>
#include <cstdint>
#include <limits>

#include "base/mirel_export.h"

namespace mirel {

class LatLngValue;
class LatLngPair;
class LatValue;
class LngValue;

namespace coords {

// One angle in any point notation, as published: one group around the three forms. The
// pair patterns are derived from this text, so it lives here rather than in the QString,
// whose static initialisation may come after theirs.
inline constexpr char kValuePatternUtf8[] =
    "((?:\\d+(?!\\d)\\.?\\d*)(?:\u00b0)?"
    "|(?:\\d+(?!\\d))(?:\u00b0)?\\s*(?:\\d+(?!\\d)\\.?\\d*)[`']?"
    "|(?:\\d+(?!\\d))(?:\u00b0)?\\s*(?:\\d+(?!\\d))[`']?\\s*(?:\\d+(?!\\d)\\.?\\d*)(?:\"|'')?)";

// A: the alternation inside the published pattern's outer parentheses.
QString valueAlternation();
// Ac: A with each optional decimal point made an optional decimal comma.
QString commaValueAlternation();

// The conversion of "(int)double" that the degree and minute rules rely on, by defined
// means: a value outside the 32-bit range gives the smallest int, which every range test
// then refuses.
inline std::int32_t truncated(double d) {
    if (!(d > -2147483649.0 && d < 2147483648.0)) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(d);
}

// The value rules on captured numbers. `Reader` turns digits into a double: read(text, &d)
// reports whether the text read, fraction(digits) is "0." + digits or -1.0.
template <class Reader>
bool readDegrees(const Reader& r, QStringView text, std::int32_t* degrees) {
    double d = 0;
    if (!r.read(text, &d)) return false;
    *degrees = truncated(d);
    return *degrees >= 0 && *degrees <= 180;
}

// The digits after a decimal comma, or 0 without one.
template <class Reader>
bool commaFraction(const Reader& r, QStringView digits, bool comma, double* f) {
    *f = comma ? r.fraction(digits) : 0.0;
    return *f >= 0 && *f <= 1;
}

template <class Reader>
bool evaluateDF(const Reader& r, QStringView number, QStringView fraction, bool comma, double* value) {
    double d = 0, f = 0;
    if (!r.read(number, &d) || d < 0 || d > 180) return false;
    // The range test comes before the fraction: 180,5 passes where 180.5 does not.
    if (!commaFraction(r, fraction, comma, &f)) return false;
    *value = d + f;
    return true;
}

template <class Reader>
bool evaluateDMF(const Reader& r, QStringView deg, QStringView min, QStringView fraction, bool comma,
                 double* value) {
    std::int32_t degrees = 0;
    double m = 0, f = 0;
    if (!readDegrees(r, deg, &degrees)) return false;
    if (!r.read(min, &m) || m < 0 || m > 60) return false;
    if (!commaFraction(r, fraction, comma, &f)) return false;
    *value = degrees + (m + f) / 60.0;
    return true;
}

template <class Reader>
bool evaluateDMSF(const Reader& r, QStringView deg, QStringView min, QStringView sec, QStringView fraction,
                  bool comma, double* value) {
    std::int32_t degrees = 0;
    double m = 0, s = 0, f = 0;
    if (!readDegrees(r, deg, &degrees) || !r.read(min, &m)) return false;
    const std::int32_t minutes = truncated(m);
    if (minutes < 0 || minutes > 60) return false;
    if (!r.read(sec, &s) || s < 0 || s > 60) return false;
    if (!commaFraction(r, fraction, comma, &f)) return false;
    // No test of the total: 180° 60' 60'' stays about 181.0167.
    *value = degrees + minutes / 60.0 + (s + f) / 3600.0;
    return true;
}

// Records a pattern set made on first use where its class keeps it, and hands it on.
template <class T>
T* publish(T* instance, std::atomic<T*>& slot) {
    slot.store(instance, std::memory_order_release);
    return instance;
}

// The pattern-matching path alone, without the scanner: the definition the scanner is held
// to. Same contract as the classes' ParseFrom.
MIREL_EXPORT bool parseValueByPatterns(LatLngValue& v, const QString& text);
MIREL_EXPORT bool parsePairByPatterns(LatLngPair& p, const QString& text);
MIREL_EXPORT bool parseLatByPatterns(LatValue& v, const QString& text);
MIREL_EXPORT bool parseLngByPatterns(LngValue& v, const QString& text);

}  // namespace coords
}  // namespace mirel
