// One unsigned angle read from text: decimal degrees (DF), degrees and decimal minutes
// (DMF), or degrees, minutes and decimal seconds (DMSF), each with a decimal point or a
// decimal comma: 37.422°, 37° 25,32', 37° 25' 19.2''. No sign and no hemisphere letter;
// LatLngPair, LatValue and LngValue add those. Use LatLngValue::Parse for one number, and
// kREPattern to find or validate angles in text of your own.
//
// The whole text must be one angle: blanks at either end refuse it. Degrees run from 0 to
// 180 and minutes and seconds from 0 to 60, limits included; the total is not tested, so
// 180° 60' 60'' gives about 181.0167. Parsing is reentrant and takes no lock.
#pragma once

#include <QRegularExpression>
#include <QString>

#include <atomic>

#include "base/mirel_export.h"

namespace mirel {

// The compiled value patterns, one read-only instance per process. Slots 0-2 are DF, DMF
// and DMSF with a decimal point, slots 3-5 the same forms with a decimal comma; every
// pattern is anchored, so a match covers the whole text.
class MIREL_EXPORT LatLngValuePatterns {
public:
    // Made on the first call, safely when threads race; never destroyed.
    static LatLngValuePatterns* getSingleton();

    QRegularExpression mPatterns[6];

private:
    LatLngValuePatterns();
    // The instance once made; null before the first getSingleton().
    static std::atomic<LatLngValuePatterns*> sSingleton;
};

// One parse of one angle, normally made and used by Parse alone.
class MIREL_EXPORT LatLngValue {
public:
    // One group around the three point forms, for the application's own searches; the
    // library never matches it itself.
    static const QString kREPattern;

    // `target` (may be null) receives the value of a successful ParseFrom; not owned.
    explicit LatLngValue(double* target);
    LatLngValue();
    ~LatLngValue();

    // Reads `text` as one angle in degrees into *result. False, with *result untouched,
    // when the text is no angle or a part is out of range.
    static bool Parse(const QString& text, double* result);

    // Tries DMSF, DMF, DF with a point, then the same with a comma; the first success
    // sets `value` and *target (if set) and returns true.
    bool ParseFrom(const QString& text);

    // One form each; `comma` selects the decimal-comma pattern. On success `value` is set;
    // on failure nothing changes.
    bool TryDF(const QString& text, bool comma);
    bool TryDMF(const QString& text, bool comma);
    bool TryDMSF(const QString& text, bool comma);

    // The digits after a decimal comma as a fraction in [0, 1]; -1.0 if they do not read.
    double ConvertToFraction(const QString& digits);

    double* target;
    double value;  // degrees
    LatLngValuePatterns* patterns;
};

}  // namespace mirel
