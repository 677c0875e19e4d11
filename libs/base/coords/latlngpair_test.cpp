// Pairs, latitudes and longitudes: letters and signs, separators, either order, the forms
// refused, the first-character tests, and targets left alone on every failure.
#include "base/coords/latlngpair.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

namespace mirel {
namespace {

constexpr double kUntouched = -999.0;

double dms(double d, double m, double s) { return d + m / 60.0 + s / 3600.0; }

struct PairRow {
    const char* text;  // UTF-8
    bool ok;
    double lat;
    double lng;
};

const PairRow kPairs[] = {
    // Letters after, before, either case, either order.
    {"37.42 N 122.08 W", true, 37.42, -122.08},
    {"N 37.42 W 122.08", true, 37.42, -122.08},
    {"122.08 W, 37.42 N", true, 37.42, -122.08},
    {"W 122.08 / N 37.42", true, 37.42, -122.08},
    {"37.42N/122.08W", true, 37.42, -122.08},
    {"N37.42W122.08", true, 37.42, -122.08},
    {"37.42 s 122.08 e", true, -37.42, 122.08},
    {"e 122.08 s 37.42", true, -37.42, 122.08},
    {"37.42 N , 122.08 W", true, 37.42, -122.08},
    {"37\u00b0 25' 19.2'' N 122\u00b0 5' 2.4'' W", true, dms(37, 25, 19.2), -dms(122, 5, 2.4)},
    {"N 37\u00b025.5' W 122\u00b05`", true, 37.0 + 25.5 / 60.0, -(122.0 + 5 / 60.0)},
    // Signs: first is always the latitude.
    {"-37.5, 120.25", true, -37.5, 120.25},
    {"+37.5 -120.25", true, 37.5, -120.25},
    {"37.5 - 120.25", true, 37.5, -120.25},
    {"37.5 120.25", true, 37.5, 120.25},
    {"37.5/120.25", true, 37.5, 120.25},
    {"120.25 37.5", false, 0, 0},
    {"37 30 0 122 5 0", true, 37.5, dms(122, 5, 0)},
    // Fraction digits are given back to make a second number, as the patterns do.
    {"1.23", true, 1.2, 3},
    // Decimal commas: letters with an optional separator, signs with blanks only.
    {"37,5 120,25", true, 37.5, 120.25},
    {"-37,5 -120,25", true, -37.5, -120.25},
    {"37,5, 120,25", false, 0, 0},
    {"37,5 N 120,25 W", true, 37.5, -120.25},
    {"N 37,5, W 120,25", true, 37.5, -120.25},
    {"37,5 N / 120,25 W", true, 37.5, -120.25},
    // The first form that matches decides: its numbers are not cut another way.
    {"37 30 122 5", false, 0, 0},
    {"37, 120,25", false, 0, 0},
    // Two letters of one axis.
    {"37 N 20 N", false, 0, 0},
    {"10 E 20 W", false, 0, 0},
    {"N 37 S 20", false, 0, 0},
    // Ranges: latitude within 90 in a pair, every value within 180.
    {"90 S 180 W", true, -90, -180},
    {"20 N 180,5 E", true, 20, 180.5},
    {"100 N 20 E", false, 0, 0},
    {"20 E 100 N", false, 0, 0},
    {"-90.5 10", false, 0, 0},
    {"20 N 190 E", false, 0, 0},
    {"20 N 10 61 E", false, 0, 0},
    // Whole text, and the shapes that are no pair.
    {" 37.42 N 122.08 W", false, 0, 0},
    // ...except that the signed form's "([-+])?\s*" lets blanks lead.
    {" 37.5 120.25", true, 37.5, 120.25},
    {"37.5 120.25 ", false, 0, 0},
    {"37.42 N 122.08 W ", false, 0, 0},
    {"37.42 N 122.08 W x", false, 0, 0},
    {"37.42 N ,, 122.08 W", false, 0, 0},
    {"+-37 10", false, 0, 0},
    {"N 37.5 E", false, 0, 0},
    {"37.5 N", false, 0, 0},
    {"1230", false, 0, 0},
    {"", false, 0, 0},
};

// Parse -----------------------------------------------------------------------------------------

TEST(LatLngPair, ParsesEveryFormAndLeavesTargetsAloneOnFailure) {
    for (const PairRow& row : kPairs) {
        double lat = kUntouched, lng = kUntouched;
        EXPECT_EQ(LatLngPair::Parse(QString::fromUtf8(row.text), &lat, &lng), row.ok) << row.text;
        EXPECT_DOUBLE_EQ(lat, row.ok ? row.lat : kUntouched) << row.text;
        EXPECT_DOUBLE_EQ(lng, row.ok ? row.lng : kUntouched) << row.text;
    }
}

TEST(LatLngPair, NullTargetsAndTheWorkingFields) {
    LatLngPair p;
    EXPECT_TRUE(p.ParseFrom("10 S 20 W"));
    EXPECT_DOUBLE_EQ(p.lat, -10);
    EXPECT_DOUBLE_EQ(p.lng, -20);
    // Only one target: the other half is simply not stored.
    double lat = kUntouched;
    LatLngPair q(&lat, nullptr);
    EXPECT_TRUE(q.ParseFrom("5 6"));
    EXPECT_DOUBLE_EQ(lat, 5);
    // A form that reads but fails the latitude test ends the search, storing nothing.
    double lng = kUntouched;
    LatLngPair r(&lat, &lng);
    EXPECT_FALSE(r.ParseFrom("95 N 10 E"));
    EXPECT_DOUBLE_EQ(lat, 5);
    EXPECT_DOUBLE_EQ(lng, kUntouched);
}

// The published pair pattern ---------------------------------------------------------------------

TEST(LatLngPair, PublishedPatternMatchesEveryPointPairAndFindsOneInText) {
    const QRegularExpression re(LatLngPair::kREPattern);
    ASSERT_TRUE(re.isValid());
    EXPECT_EQ(re.captureCount(), 1);
    const QRegularExpression whole(QRegularExpression::anchoredPattern(LatLngPair::kREPattern));
    for (const PairRow& row : kPairs) {
        const QString text = QString::fromUtf8(row.text);
        if (row.ok && !text.contains(',')) {
            EXPECT_TRUE(whole.match(text).hasMatch()) << row.text;
        }
    }
    QRegularExpressionMatch m = re.match(QString::fromUtf8("meet at:37.42 N 122.08 W tomorrow"));
    ASSERT_TRUE(m.hasMatch());
    EXPECT_EQ(m.captured(1), QString::fromUtf8("37.42 N 122.08 W"));
    // The signed form may begin with blanks and cut a number in two, and a search takes the
    // leftmost match: after a blank, the signed form wins.
    m = re.match(QString::fromUtf8("meet at 37.42 N 122.08 W"));
    ASSERT_TRUE(m.hasMatch());
    EXPECT_EQ(m.captured(1), QString::fromUtf8(" 37.42"));
}

// Latitudes and longitudes -----------------------------------------------------------------------

TEST(LatLngValues, SingleAxesTakeTheirOwnLettersAndNoRangeOrComma) {
    struct Row {
        bool latitude;
        const char* text;
        bool ok;
        double value;
    };
    const Row rows[] = {
        {true, "S 33.9", true, -33.9},   {true, "33.9 s", true, -33.9},    {true, "33.9N", true, 33.9},
        {true, "-33.9", true, -33.9},    {true, "+ 33.9", true, 33.9},     {true, "33.9", true, 33.9},
        {true, "95 N", true, 95},        {true, "33\u00b0 54' S", true, -33.9},
        {true, "33.9 E", false, 0},      {true, "W 33.9", false, 0},       {true, "33,9", false, 0},
        {true, "200 N", false, 0},       {true, "33.9 N ", false, 0},      {true, "--33.9", false, 0},
        {true, " - 33.9", false, 0},     {true, "- 33.9", true, -33.9},    {true, " 33.9", true, 33.9},
        {false, "122.08 W", true, -122.08}, {false, "E 122", true, 122},   {false, "w122", true, -122},
        {false, "- 122", true, -122},    {false, "180 E", true, 180},      {false, "122 N", false, 0},
        {false, "S 122", false, 0},      {false, "181 W", false, 0},       {false, "", false, 0},
    };
    for (const Row& row : rows) {
        const QString text = QString::fromUtf8(row.text);
        double result = kUntouched;
        const bool ok = row.latitude ? LatValue::Parse(text, &result) : LngValue::Parse(text, &result);
        EXPECT_EQ(ok, row.ok) << row.text;
        EXPECT_DOUBLE_EQ(result, row.ok ? row.value : kUntouched) << row.text;
    }
}

// First-character tests ---------------------------------------------------------------------------

TEST(LatLngPair, DirectionAndSignTestsLookAtTheFirstLatin1Character) {
    struct Row {
        QString text;
        bool valid, ns, ew, sign, negative;
    };
    const Row rows[] = {
        {"", false, false, false, true, false},      {"N", true, true, false, false, false},
        {"s", true, true, false, false, true},       {"S", true, true, false, false, true},
        {"E", true, false, true, false, false},      {"w", true, false, true, false, true},
        {"W", true, false, true, false, true},       {"n", true, true, false, false, false},
        {"-", false, false, false, true, true},      {"+", false, false, false, true, false},
        {"x", false, false, false, false, false},    {"Nx", true, true, false, false, false},
        {"xN", false, false, false, false, false},
        // U+014E and U+012D have the low bytes of 'N' and '-': above U+00FF they count as 0.
        {QString(QChar(0x014E)), false, false, false, false, false},
        {QString(QChar(0x012D)), false, false, false, false, false},
    };
    for (const Row& r : rows) {
        const std::string shown = r.text.toStdString();
        EXPECT_EQ(is_valid_direction(r.text), r.valid) << shown;
        EXPECT_EQ(is_ns_direction(r.text), r.ns) << shown;
        EXPECT_EQ(is_ew_direction(r.text), r.ew) << shown;
        EXPECT_EQ(is_valid_sign(r.text), r.sign) << shown;
        EXPECT_EQ(is_negative_direction(r.text), r.negative) << shown;
    }
}

}  // namespace
}  // namespace mirel
