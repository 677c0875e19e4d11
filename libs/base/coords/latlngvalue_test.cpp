// One angle: every notation, the limits and the kept asymmetries, and a result left alone
// on every failure.
#include "base/coords/latlngvalue.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

#include <utility>

namespace mirel {
namespace {

constexpr double kUntouched = -999.0;
constexpr double kRefused = kUntouched;  // the expected result of a refused text

TEST(LatLngValue, ReadsEveryNotationAndRefusesWhatTheRulesRefuse) {
    const std::pair<const char*, double> rows[] = {  // UTF-8 text, value
        // Every form with a point and with a comma; blanks, degree, minute and second marks.
        {"37.5", 37.5}, {"37,5", 37.5}, {"37.422\u00b0", 37.422}, {"37,422\u00b0", 37.422}, {"37\u00b030'", 37.5},
        {"37\u00b0 30.5'", 37.0 + 30.5 / 60.0}, {"37\u00b0 30,5'", 37.0 + 30.5 / 60.0}, {"37 30`", 37.5},
        {"37\u00b030'0''", 37.5}, {"37 30 0", 37.5}, {"37\t30\t0\"", 37.5}, {"12.", 12.0}, {"007", 7.0},
        {"37\u00b0 25' 19.2''", 37.0 + 25 / 60.0 + 19.2 / 3600.0}, {"37\u00b0 25' 19,2''", 37.0 + 25 / 60.0 + 19.2 / 3600.0},
        // Fraction digits beyond a double's precision round up to 1, which still passes; digit
        // runs long enough to be read by QString::toDouble alone.
        {"0,99999999999999999999", 1.0}, {"0000000000000000000000000000000000037", 37.0},
        {"10 0 00000000000000000000000000000000030", 10.0 + 30 / 3600.0},
        // Limits, inclusive; the range test of DF comes before the comma fraction.
        {"0", 0.0}, {"180", 180.0}, {"180.5", kRefused}, {"180,5", 180.5}, {"181", kRefused}, {"181 0", kRefused},
        {"10 60", 11.0}, {"10 61", kRefused}, {"10 60.5", kRefused}, {"10 0 60", 10.0 + 60 / 3600.0},
        {"10 0 61", kRefused}, {"10 61 0", kRefused}, {"10 0 60,5", 10.0 + 60.5 / 3600.0},
        {"180\u00b0 60' 60''", 180.0 + 1.0 + 1.0 / 60.0},
        // Summed as degrees + minutes / 60 + seconds / 3600, to the last bit.
        {"0 0 4.9", 4.9 / 3600.0}, {"0 3 1", 3 / 60.0 + 1 / 3600.0},
        // Whole-text match: nothing outside the pattern, no sign, no letter, no wider \s or \d,
        // and a run is never split (1230 is not 12° 30').
        {"", kRefused}, {" 37.5", kRefused}, {"37.5 ", kRefused}, {"-37.5", kRefused}, {"+37.5", kRefused},
        {"37.5N", kRefused}, {"12,", kRefused}, {",5", kRefused}, {".5", kRefused}, {"37.5.5", kRefused},
        {"37,5,5", kRefused}, {"37\u00b0\u00b0", kRefused}, {"37 30 0'", kRefused}, {"37 30 0 0", kRefused},
        {"37\u00a030", kRefused}, {"\u0663\u0667", kRefused}, {"1230", kRefused},
    };
    for (const auto& [text, value] : rows) {
        double result = kUntouched;
        EXPECT_EQ(LatLngValue::Parse(QString::fromUtf8(text), &result), value != kRefused) << text;
        EXPECT_EQ(result, value) << text;
    }
    LatLngValue noTarget;  // keeps the value for the caller to read
    EXPECT_TRUE(noTarget.ParseFrom("12 30") && noTarget.value == 12.5);
}

TEST(LatLngValue, PublishedPatternIsTheDocumentedTextAndFindsAngles) {
    EXPECT_EQ(LatLngValue::kREPattern,
              QString::fromUtf8("((?:\\d+(?!\\d)\\.?\\d*)(?:\u00b0)?|(?:\\d+(?!\\d))(?:\u00b0)?\\s*(?:\\d+(?!\\d)\\.?\\d*)[`']?|"
                                "(?:\\d+(?!\\d))(?:\u00b0)?\\s*(?:\\d+(?!\\d))[`']?\\s*(?:\\d+(?!\\d)\\.?\\d*)(?:\"|'')?)"));
    const QRegularExpression re(LatLngValue::kREPattern);
    // A search takes the first alternative that fits, not the longest: DF before DMSF.
    EXPECT_EQ(re.match(QString::fromUtf8("at 37\u00b0 25' 19.2'' north")).captured(1), QString::fromUtf8("37\u00b0"));
}

}  // namespace
}  // namespace mirel
