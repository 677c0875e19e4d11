// Latitudes, longitudes and latitude/longitude pairs read from text, with the side of the
// globe given by a hemisphere letter after the number (DA: 37.42 N), before it (DB:
// N 37.42) or by an optional sign before it (SB: -122.08). Each number is one angle as
// LatLngValue reads it. Use LatLngPair::Parse for a position typed by a person, LatValue
// and LngValue for one axis, and LatLngPair::kREPattern to find pairs in free text.
//
// Pairs take either order when the letters say which number is the latitude, a comma or
// slash between the halves, and a decimal comma; a pair whose latitude is beyond 90 is
// refused. The single parsers test no range and know no decimal comma. The whole text must
// match: blanks at either end refuse it. Parsing is reentrant and takes no lock.
#pragma once

#include <QRegularExpression>
#include <QString>
#include <QStringView>

#include <atomic>

#include "base/mirel_export.h"

namespace mirel {

// The compiled pair patterns, one read-only instance per process: DA, DB, SB with a
// decimal point in slots 0-2, with a decimal comma in slots 3-5. All are anchored.
class MIREL_EXPORT LatLngPairPatterns {
public:
    // Made on the first call, safely when threads race; never destroyed.
    static LatLngPairPatterns* getSingleton();
    QRegularExpression mPatterns[6];

private:
    LatLngPairPatterns();
    static std::atomic<LatLngPairPatterns*> sSingleton;
};

// Latitude patterns: DA, DB, SB (letters N S n s). Same lifetime as the pair patterns.
class MIREL_EXPORT LatValuePatterns {
public:
    static LatValuePatterns* getSingleton();
    QRegularExpression mPatterns[3];

private:
    LatValuePatterns();
    static std::atomic<LatValuePatterns*> sSingleton;
};

// Longitude patterns: DA, DB, SB (letters E W e w).
class MIREL_EXPORT LngValuePatterns {
public:
    static LngValuePatterns* getSingleton();
    QRegularExpression mPatterns[3];

private:
    LngValuePatterns();
    static std::atomic<LngValuePatterns*> sSingleton;
};

// One parse of a pair. Targets are not owned and may be null.
class MIREL_EXPORT LatLngPair {
public:
    // Any pair in any point notation, one capturing group around the three forms, for
    // searching free text; the library never matches it itself.
    static const QString kREPattern;

    LatLngPair(double* lat, double* lng);
    LatLngPair();
    ~LatLngPair();

    // Reads `text` as a pair, north and east positive, into *lat and *lng. False, with
    // both untouched, when no form fits or the latitude lies beyond ±90.
    static bool Parse(const QString& text, double* lat, double* lng);

    // Tries DA, DB, SB with a point, then with a comma; the first form that reads ends the
    // search. Stores into the targets only when the latitude is within ±90.
    bool ParseFrom(const QString& text);

    // One form each; `comma` selects the decimal-comma pattern. On success `lat` and `lng`
    // are set (not the targets); on failure nothing changes.
    bool TryDA(const QString& text, bool comma);
    bool TryDB(const QString& text, bool comma);
    bool TrySB(const QString& text, bool comma);

    double* latTarget;
    double* lngTarget;
    double lat;  // degrees, north positive
    double lng;  // degrees, east positive
    LatLngPairPatterns* patterns;
};

// One latitude: 33.9 S, S 33.9, -33.9. No range test: 95 N reads as 95.
class MIREL_EXPORT LatValue {
public:
    explicit LatValue(double* target);
    LatValue();
    ~LatValue();

    // Reads `text` into *result (south negative); false, with *result untouched, otherwise.
    static bool Parse(const QString& text, double* result);
    // Tries DA, DB, SB; the first success sets `value` and *target (if set).
    bool ParseFrom(const QString& text);
    bool TryDA(const QString& text);
    bool TryDB(const QString& text);
    bool TrySB(const QString& text);

    double* target;
    double value;
    LatValuePatterns* patterns;
};

// One longitude: 122.08 W, W 122.08, -122.08 (west negative). No range test beyond the
// 180 degrees of a value.
class MIREL_EXPORT LngValue {
public:
    explicit LngValue(double* target);
    LngValue();
    ~LngValue();

    static bool Parse(const QString& text, double* result);
    bool ParseFrom(const QString& text);
    bool TryDA(const QString& text);
    bool TryDB(const QString& text);
    bool TrySB(const QString& text);

    double* target;
    double value;
    LngValuePatterns* patterns;
};

// Tests on the first character of a text only (its Latin-1 code; 0 above U+00FF).
// A hemisphere letter: E N S W e n s w. Empty: false.
MIREL_EXPORT bool is_valid_direction(const QString& text);
// N S n s. Empty: false.
MIREL_EXPORT bool is_ns_direction(const QString& text);
// E W e w. Empty: false.
MIREL_EXPORT bool is_ew_direction(const QString& text);
// + or -, and an empty text: an absent sign is a valid one.
MIREL_EXPORT bool is_valid_sign(const QString& text);
// S s W w -: the letters and the sign that make a value negative. Empty: false.
MIREL_EXPORT bool is_negative_direction(const QString& text);

}  // namespace mirel
