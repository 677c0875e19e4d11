// Pairs, latitudes and longitudes: letters and signs, separators, either order, the forms
// refused, the first-character tests, and targets left alone on every failure.
#include "base/coords/latlngpair.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

#include <tuple>
#include <utility>

namespace mirel {
namespace {

constexpr double kUntouched = -999.0;
constexpr double kRefused = kUntouched;  // the expected latitude of a refused text

double dms(double d, double m, double s) { return d + m / 60.0 + s / 3600.0; }

struct PairRow {
    const char* text;  // UTF-8
    double lat;
    double lng;
};

const PairRow kPairs[] = {
    // Letters after, before, either case, either order, with or without a separator.
    {"37.42 N 122.08 W", 37.42, -122.08}, {"N 37.42 W 122.08", 37.42, -122.08}, {"122.08 W, 37.42 N", 37.42, -122.08},
    {"W 122.08 / N 37.42", 37.42, -122.08}, {"37.42N/122.08W", 37.42, -122.08}, {"N37.42W122.08", 37.42, -122.08},
    {"37.42 s 122.08 e", -37.42, 122.08}, {"e 122.08 s 37.42", -37.42, 122.08}, {"37.42 N , 122.08 W", 37.42, -122.08},
    {"37\u00b0 25' 19.2'' N 122\u00b0 5' 2.4'' W", dms(37, 25, 19.2), -dms(122, 5, 2.4)},
    {"N 37\u00b025.5' W 122\u00b05`", 37.0 + 25.5 / 60.0, -(122.0 + 5 / 60.0)},
    // Signs: the first is always the latitude.
    {"-37.5, 120.25", -37.5, 120.25}, {"+37.5 -120.25", 37.5, -120.25}, {"37.5 - 120.25", 37.5, -120.25},
    {"37.5 120.25", 37.5, 120.25}, {"37.5/120.25", 37.5, 120.25}, {"120.25 37.5", kRefused, 0},
    {"37 30 0 122 5 0", 37.5, dms(122, 5, 0)},
    // Fraction digits are given back to make a second number, as the patterns do.
    {"1.23", 1.2, 3},
    // Decimal commas: letters with an optional separator, signs with blanks only.
    {"37,5 120,25", 37.5, 120.25}, {"-37,5 -120,25", -37.5, -120.25}, {"37,5, 120,25", kRefused, 0},
    {"37,5 N 120,25 W", 37.5, -120.25}, {"N 37,5, W 120,25", 37.5, -120.25}, {"37,5 N / 120,25 W", 37.5, -120.25},
    // The first form that matches decides: its numbers are not cut another way.
    {"37 30 122 5", kRefused, 0}, {"37, 120,25", kRefused, 0},
    // Two letters of one axis.
    {"37 N 20 N", kRefused, 0}, {"10 E 20 W", kRefused, 0}, {"N 37 S 20", kRefused, 0},
    // Ranges: latitude within 90 in a pair, every value within 180.
    {"90 S 180 W", -90, -180}, {"20 N 180,5 E", 20, 180.5}, {"100 N 20 E", kRefused, 0}, {"20 E 100 N", kRefused, 0},
    {"-90.5 10", kRefused, 0}, {"20 N 190 E", kRefused, 0}, {"20 N 10 61 E", kRefused, 0},
    // Whole text, except that the signed form's "([-+])?\s*" lets blanks lead; shapes that
    // are no pair.
    {" 37.42 N 122.08 W", kRefused, 0}, {" 37.5 120.25", 37.5, 120.25}, {"37.5 120.25 ", kRefused, 0},
    {"37.42 N 122.08 W ", kRefused, 0}, {"37.42 N 122.08 W x", kRefused, 0}, {"37.42 N ,, 122.08 W", kRefused, 0},
    {"+-37 10", kRefused, 0}, {"N 37.5 E", kRefused, 0}, {"37.5 N", kRefused, 0}, {"1230", kRefused, 0},
    {"", kRefused, 0},
};

TEST(LatLngPair, ParsesEveryFormAndLeavesTargetsAloneOnFailure) {
    for (const PairRow& row : kPairs) {
        const bool ok = row.lat != kRefused;
        double lat = kUntouched, lng = kUntouched;
        EXPECT_EQ(LatLngPair::Parse(QString::fromUtf8(row.text), &lat, &lng), ok) << row.text;
        EXPECT_DOUBLE_EQ(lat, row.lat) << row.text;
        EXPECT_DOUBLE_EQ(lng, ok ? row.lng : kUntouched) << row.text;
    }
    // Null targets keep the working fields; a missing target is simply not stored.
    LatLngPair p;
    EXPECT_TRUE(p.ParseFrom("10 S 20 W") && p.lat == -10 && p.lng == -20);
    double lat = kUntouched;
    EXPECT_TRUE(LatLngPair(&lat, nullptr).ParseFrom("5 6") && lat == 5);
}

TEST(LatLngPair, PublishedPatternMatchesEveryPointPairAndFindsOneInText) {
    const QRegularExpression re(LatLngPair::kREPattern);
    EXPECT_EQ(re.captureCount(), 1);
    const QRegularExpression whole(QRegularExpression::anchoredPattern(LatLngPair::kREPattern));
    for (const PairRow& row : kPairs) {
        const QString text = QString::fromUtf8(row.text);
        if (row.lat != kRefused && !text.contains(',')) {
            EXPECT_TRUE(whole.match(text).hasMatch()) << row.text;
        }
    }
    EXPECT_EQ(re.match(QString::fromUtf8("meet at:37.42 N 122.08 W tomorrow")).captured(1), "37.42 N 122.08 W");
    // The signed form may begin with blanks and cut a number in two, and a search takes the
    // leftmost match: after a blank, the signed form wins.
    EXPECT_EQ(re.match(QString::fromUtf8("meet at 37.42 N 122.08 W")).captured(1), " 37.42");
}

TEST(LatLngValues, SingleAxesTakeTheirOwnLettersAndNoRangeOrComma) {
    const std::tuple<bool, const char*, double> rows[] = {  // latitude or longitude, text, value
        {true, "S 33.9", -33.9}, {true, "33.9 s", -33.9}, {true, "33.9N", 33.9}, {true, "-33.9", -33.9},
        {true, "+ 33.9", 33.9}, {true, "33.9", 33.9}, {true, "95 N", 95}, {true, "33\u00b0 54' S", -33.9},
        {true, "- 33.9", -33.9}, {true, " 33.9", 33.9}, {true, "33.9 E", kRefused}, {true, "W 33.9", kRefused},
        {true, "33,9", kRefused}, {true, "200 N", kRefused}, {true, "33.9 N ", kRefused}, {true, "--33.9", kRefused},
        {true, " - 33.9", kRefused}, {false, "122.08 W", -122.08}, {false, "E 122", 122}, {false, "w122", -122},
        {false, "- 122", -122}, {false, "180 E", 180}, {false, "122 N", kRefused}, {false, "S 122", kRefused},
        {false, "181 W", kRefused}, {false, "", kRefused},
    };
    for (const auto& [latitude, text, value] : rows) {
        double result = kUntouched;
        const QString t = QString::fromUtf8(text);
        EXPECT_EQ(latitude ? LatValue::Parse(t, &result) : LngValue::Parse(t, &result), value != kRefused) << text;
        EXPECT_DOUBLE_EQ(result, value) << text;
    }
}

TEST(LatLngPair, DirectionAndSignTestsLookAtTheFirstLatin1Character) {
    // Expected answers as valid, north/south, east/west, sign, negative.
    const std::pair<QString, const char*> rows[] = {
        {"", "00010"}, {"N", "11000"}, {"s", "11001"}, {"S", "11001"}, {"E", "10100"},
        {"w", "10101"}, {"W", "10101"}, {"n", "11000"}, {"-", "00011"}, {"+", "00010"},
        {"x", "00000"}, {"Nx", "11000"}, {"xN", "00000"},
        // U+014E and U+012D have the low bytes of 'N' and '-': above U+00FF they count as 0.
        {QString(QChar(0x014E)), "00000"}, {QString(QChar(0x012D)), "00000"},
    };
    for (const auto& [text, answers] : rows) {
        const QString got = QString::number(is_valid_direction(text)) + QString::number(is_ns_direction(text)) +
                            QString::number(is_ew_direction(text)) + QString::number(is_valid_sign(text)) +
                            QString::number(is_negative_direction(text));
        EXPECT_EQ(got, QString::fromLatin1(answers)) << text.toStdString();
    }
}

}  // namespace
}  // namespace mirel
