// One angle: every notation, the limits and the kept asymmetries, and a result left alone
// on every failure.
#include "base/coords/latlngvalue.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

namespace mirel {
namespace {

constexpr double kUntouched = -999.0;

struct ValueRow {
    const char* text;  // UTF-8
    bool ok;
    double value;
};

// Notations, point and comma -----------------------------------------------------------------

TEST(LatLngValue, ReadsEveryNotationAndRefusesWhatTheRulesRefuse) {
    const ValueRow rows[] = {
        {"37.5", true, 37.5},
        {"37,5", true, 37.5},
        {"37.422\u00b0", true, 37.422},
        {"37,422\u00b0", true, 37.422},
        {"37\u00b030'", true, 37.5},
        {"37\u00b0 30.5'", true, 37.0 + 30.5 / 60.0},
        {"37\u00b0 30,5'", true, 37.0 + 30.5 / 60.0},
        {"37 30`", true, 37.5},
        {"37\u00b030'0''", true, 37.5},
        {"37 30 0", true, 37.5},
        {"37\t30\t0\"", true, 37.5},
        {"37\u00b0 25' 19.2''", true, 37.0 + 25 / 60.0 + 19.2 / 3600.0},
        {"37\u00b0 25' 19,2''", true, 37.0 + 25 / 60.0 + 19.2 / 3600.0},
        {"12 30", true, 12.5},
        {"12.", true, 12.0},
        {"007", true, 7.0},
        // Fraction digits beyond a double's precision round up to 1, which still passes.
        {"0,99999999999999999999", true, 1.0},
        // Digit runs long enough to be read by QString::toDouble alone.
        {"0000000000000000000000000000000000037", true, 37.0},
        {"10 0 00000000000000000000000000000000030", true, 10.0 + 30 / 3600.0},
        // Limits, inclusive; the range test of DF comes before the comma fraction.
        {"0", true, 0.0},
        {"180", true, 180.0},
        {"180.5", false, 0},
        {"180,5", true, 180.5},
        {"181", false, 0},
        {"181 0", false, 0},
        {"10 60", true, 11.0},
        {"10 61", false, 0},
        {"10 60.5", false, 0},
        {"10 0 60", true, 10.0 + 60 / 3600.0},
        {"10 0 61", false, 0},
        {"10 61 0", false, 0},
        {"10 0 60,5", true, 10.0 + 60.5 / 3600.0},
        {"180\u00b0 60' 60''", true, 180.0 + 1.0 + 1.0 / 60.0},
        // Summed as degrees + minutes / 60 + seconds / 3600, to the last bit.
        {"0 0 4.9", true, 4.9 / 3600.0},
        // Whole-text match: nothing outside the pattern.
        {"", false, 0},
        {" 37.5", false, 0},
        {"37.5 ", false, 0},
        {"-37.5", false, 0},
        {"+37.5", false, 0},
        {"37.5N", false, 0},
        {"12,", false, 0},
        {",5", false, 0},
        {".5", false, 0},
        {"37.5.5", false, 0},
        {"37,5,5", false, 0},
        {"37\u00b0\u00b0", false, 0},
        {"37 30 0'", false, 0},
        {"37 30 0 0", false, 0},
        {"37\u00a030", false, 0},  // a no-break space is no \s
        {"\u0663\u0667", false, 0},  // Arabic-Indic digits are no \d
        // A run is never split: 1230 is not 12° 30'.
        {"1230", false, 0},
    };
    for (const ValueRow& row : rows) {
        const QString text = QString::fromUtf8(row.text);
        double result = kUntouched;
        EXPECT_EQ(LatLngValue::Parse(text, &result), row.ok) << row.text;
        EXPECT_EQ(result, row.ok ? row.value : kUntouched) << row.text;
    }
}

TEST(LatLngValue, FractionAndTargets) {
    LatLngValue v;
    EXPECT_DOUBLE_EQ(v.ConvertToFraction("25"), 0.25);
    EXPECT_DOUBLE_EQ(v.ConvertToFraction("007"), 0.007);
    EXPECT_DOUBLE_EQ(v.ConvertToFraction("x"), -1.0);

    // ParseFrom with no target still keeps the value; with one it stores it.
    EXPECT_TRUE(v.ParseFrom("12 30"));
    EXPECT_DOUBLE_EQ(v.value, 12.5);
    double out = kUntouched;
    LatLngValue w(&out);
    EXPECT_FALSE(w.ParseFrom("12 61"));
    EXPECT_DOUBLE_EQ(out, kUntouched);
    EXPECT_TRUE(w.ParseFrom("12,25"));
    EXPECT_DOUBLE_EQ(out, 12.25);
}

// The published pattern ------------------------------------------------------------------------

TEST(LatLngValue, PublishedPatternIsTheDocumentedTextAndFindsAngles) {
    const QString documented = QString::fromUtf8(
        "((?:\\d+(?!\\d)\\.?\\d*)(?:\u00b0)?|(?:\\d+(?!\\d))(?:\u00b0)?\\s*(?:\\d+(?!\\d)\\.?\\d*)[`']?|"
        "(?:\\d+(?!\\d))(?:\u00b0)?\\s*(?:\\d+(?!\\d))[`']?\\s*(?:\\d+(?!\\d)\\.?\\d*)(?:\"|'')?)");
    EXPECT_EQ(LatLngValue::kREPattern, documented);
    const QRegularExpression re(LatLngValue::kREPattern);
    ASSERT_TRUE(re.isValid());
    EXPECT_EQ(re.captureCount(), 1);
    // A search takes the first alternative that fits, not the longest: DF before DMSF.
    const QRegularExpressionMatch m = re.match(QString::fromUtf8("at 37\u00b0 25' 19.2'' north"));
    ASSERT_TRUE(m.hasMatch());
    EXPECT_EQ(m.captured(1), QString::fromUtf8("37\u00b0"));
    const QRegularExpression whole(QRegularExpression::anchoredPattern(LatLngValue::kREPattern));
    EXPECT_TRUE(whole.match(QString::fromUtf8("37\u00b0 25' 19.2''")).hasMatch());
    EXPECT_FALSE(whole.match(QString::fromUtf8("37,5")).hasMatch());
}

}  // namespace
}  // namespace mirel
