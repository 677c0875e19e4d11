#include "base/foundation/textconversion.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace mirel {
namespace {

std::vector<char16_t> units(const QString& s) {
    const auto* u = reinterpret_cast<const char16_t*>(s.utf16());
    return std::vector<char16_t>(u, u + s.size());
}

// Fixed cases ------------------------------------------------------------------------------------

TEST(ToQString, NullIsNullEmptyIsEmptyAndOnlyPointerFormsStopAtZero) {
    EXPECT_TRUE(toQString(static_cast<const wchar_t*>(nullptr)).isNull());
    EXPECT_TRUE(toQString(nullptr, 5).isNull());
    EXPECT_TRUE(toQString(L"abc", -1).isNull());
    for (const QString& empty : {toQString(L""), toQString(L"abc", 0), toQString(std::wstring())}) {
        EXPECT_FALSE(empty.isNull());
        EXPECT_TRUE(empty.isEmpty());
    }
    const std::wstring withZero(L"ab\0cd", 5);
    EXPECT_EQ(toQString(withZero.c_str()), QStringLiteral("ab"));
    EXPECT_EQ(toQString(withZero).size(), 5);
}

// Pairs start just above 0xFFFF; values past the last code point are split by the same
// formula rather than refused.
TEST(ToQString, SplitsEverythingAboveTheBasicPlaneIntoTwoUnits) {
    const wchar_t text[] = {0xFFFF, 0x10000, 0x1F600, 0x10FFFF, 0x110000, 0};
    EXPECT_EQ(units(toQString(text)), (std::vector<char16_t>{0xFFFF, 0xD800, 0xDC00, 0xD83D, 0xDE00, 0xDBFF,
                                                             0xDFFF, 0xDC00, 0xDC00}));
}

// Unpaired halves pass through as they are, in both directions. Bare 16-bit units are
// widened one by one, never paired.
TEST(ToWString, PairsOnlyAHighHalfFollowedByALowOne) {
    const std::u16string u = u"\xDC00\xD800\xD800\xDC00x\xDBFF";
    const std::wstring w = {0xDC00, 0xD800, 0x10000, L'x', 0xDBFF, 0};
    EXPECT_EQ(toWString(QString::fromStdU16String(u)), w);
    EXPECT_EQ(units(toQString(w.data(), 5)), std::vector<char16_t>(u.begin(), u.end()));
    const unsigned short text[] = {0xD83D, 0xDE00, 'A', 0, 'B'};
    EXPECT_EQ(toWString(text), std::wstring({wchar_t(0xD83D), wchar_t(0xDE00), L'A'}));
    EXPECT_EQ(toWString(static_cast<const unsigned short*>(nullptr)), std::wstring());
}

// Random round trips -------------------------------------------------------------------------------

// Code points from every plane, surrogates and 0 excluded; `astral` counts those above 0xFFFF.
std::wstring randomText(std::mt19937& rng, std::size_t length, std::size_t& astral) {
    std::uniform_int_distribution<int> plane(0, 3);
    std::uniform_int_distribution<std::uint32_t> ascii(1, 0x7F), bmp(0x80, 0xFFFF),
        supplementary(0x10000, 0x10FFFF);
    std::wstring s;
    astral = 0;
    while (s.size() < length) {
        const int k = plane(rng);
        const std::uint32_t c = k == 0 ? ascii(rng) : k == 1 ? bmp(rng) : supplementary(rng);
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        astral += c > 0xFFFF;
        s.push_back(static_cast<wchar_t>(c));
    }
    return s;
}

// Each astral character becomes a pair in UTF-16 and comes back as one character followed,
// at the end, by the zero its second unit leaves.
TEST(TextConversion, RandomTextsRoundTripAndAgreeWithQt) {
    std::mt19937 rng(20240611);
    for (int round = 0; round < 200; ++round) {
        std::size_t astral = 0;
        const std::wstring w = randomText(rng, std::size_t(round * 7 + 1), astral);
        const QString q = toQString(w);
        ASSERT_EQ(q, QString::fromUcs4(reinterpret_cast<const char32_t*>(w.data()), qsizetype(w.size())));
        EXPECT_EQ(toWString(q), w + std::wstring(astral, L'\0'));
    }
}

// Percent encoding and case-insensitive comparison -------------------------------------------------

TEST(HexEncode, EveryByteIsAPercentAndTwoLowerCaseDigits) {
    for (int b = 0; b < 256; ++b) {  // negative chars included
        EXPECT_EQ(QString::fromLatin1(hexEncode(static_cast<char>(b))),
                  QStringLiteral("%%1").arg(b, 2, 16, QChar('0')));
    }
}

TEST(Wcsicmp, OrdersAsTheLowerCaseFormsDo) {
    const struct {
        const wchar_t* a;
        const wchar_t* b;
        int expected;
    } rows[] = {
        {L"abc", L"ABC", 0}, {L"ab", L"abc", -1}, {L"abc", L"ab", 1}, {L"", L"", 0},
        {L"abd", L"ABC", 1}, {L"Zebra", L"apple", 1},
        {L"_", L"A", -1},          // '_' sorts before 'a', not after 'A'
        {L"a", L"z", -1},          // -1 and 1, never the distance
        {L"\x0100", L"\x0101", -1}, // wide characters are never folded
    };
    for (const auto& r : rows) {
        EXPECT_EQ(wcsicmp(r.a, r.b), r.expected)
            << QString::fromWCharArray(r.a).toStdString() << " vs "
            << QString::fromWCharArray(r.b).toStdString();
    }
}

}  // namespace
}  // namespace mirel
