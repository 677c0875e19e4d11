#include "base/foundation/textconversion.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cwchar>
#include <random>
#include <string>
#include <vector>

namespace mirel {
namespace {

std::vector<char16_t> units(const QString& s) {
    const auto* u = reinterpret_cast<const char16_t*>(s.utf16());
    return std::vector<char16_t>(u, u + s.size());
}

// Null, empty and the simple cases ------------------------------------------------------------

TEST(ToQString, NullIsNullAndEmptyIsEmpty) {
    EXPECT_TRUE(toQString(static_cast<const wchar_t*>(nullptr)).isNull());
    EXPECT_TRUE(toQString(nullptr, 5).isNull());
    EXPECT_TRUE(toQString(L"abc", -1).isNull());

    const QString empty = toQString(L"");
    EXPECT_FALSE(empty.isNull());
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_FALSE(toQString(L"abc", 0).isNull());
    EXPECT_FALSE(toQString(std::wstring()).isNull());
}

TEST(ToQString, PointerFormsStopAtZeroAndLengthFormsDoNot) {
    const std::wstring withZero(L"ab\0cd", 5);
    EXPECT_EQ(toQString(withZero.c_str()), QStringLiteral("ab"));
    EXPECT_EQ(toQString(withZero).size(), 5);
    EXPECT_EQ(toQString(withZero.data(), 4), QString::fromUtf16(u"ab\0c", 4));
}

// Surrogates ---------------------------------------------------------------------------------

TEST(TextConversion, AnAstralCharacterBecomesAPairAndComesBackWithATrailingZero) {
    const wchar_t grin[] = {0x1F600, 0};
    const QString q = toQString(grin);
    EXPECT_EQ(units(q), (std::vector<char16_t>{0xD83D, 0xDE00}));
    const std::wstring back = toWString(q);
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back[0], 0x1F600);
    EXPECT_EQ(back[1], 0);
    EXPECT_EQ(std::wcslen(back.c_str()), 1u);
}

TEST(TextConversion, UnpairedSurrogatesSurviveBothDirections) {
    struct Row {
        std::vector<char16_t> utf16;
    };
    const Row rows[] = {
        {{0xDC00}},                  // a low half alone
        {{0xD800}},                  // a high half at the very end
        {{0xD800, 'a'}},             // a high half before an ordinary unit
        {{0xD800, 0xD800, 0xDC00}},  // two high halves: only the second pairs
        {{0xDC00, 0xD800}},          // the halves in the wrong order
    };
    for (const Row& row : rows) {
        const QString q = QString::fromUtf16(row.utf16.data(), qsizetype(row.utf16.size()));
        const std::wstring w = toWString(q);
        EXPECT_EQ(units(toQString(w.c_str())), row.utf16);
    }
    EXPECT_EQ(toWString(QString::fromUtf16(u"\xD800\xD800\xDC00", 3)),
              std::wstring({wchar_t(0xD800), wchar_t(0x10000), wchar_t(0)}));
}

TEST(ToQString, ValuesAboveTheLastCodePointAreSplitByTheSameFormula) {
    const wchar_t beyond[] = {0x110000, 0x10FFFF, 0};
    EXPECT_EQ(units(toQString(beyond)),
              (std::vector<char16_t>{0xDC00, 0xDC00, 0xDBFF, 0xDFFF}));
}

TEST(ToWString, SixteenBitUnitsAreWidenedOneByOneUpToTheFirstZero) {
    const unsigned short text[] = {0xD83D, 0xDE00, 'A', 0, 'B'};
    EXPECT_EQ(toWString(text), std::wstring({wchar_t(0xD83D), wchar_t(0xDE00), L'A'}));
    EXPECT_EQ(toWString(static_cast<const unsigned short*>(nullptr)), std::wstring());
}

// Random texts -----------------------------------------------------------------------------------

// Code points from every plane, surrogates and 0 excluded, with `astral` counting those
// above 0xFFFF.
std::wstring randomText(std::mt19937& rng, std::size_t length, std::size_t& astral) {
    std::uniform_int_distribution<int> plane(0, 3);
    std::uniform_int_distribution<std::uint32_t> ascii(1, 0x7F), bmp(0x80, 0xFFFF),
        supplementary(0x10000, 0x10FFFF);
    std::wstring s;
    astral = 0;
    while (s.size() < length) {
        std::uint32_t c = 0;
        switch (plane(rng)) {
            case 0: c = ascii(rng); break;
            case 1:
                do c = bmp(rng);
                while (c >= 0xD800 && c <= 0xDFFF);
                break;
            default:
                c = supplementary(rng);
                ++astral;
                break;
        }
        s.push_back(static_cast<wchar_t>(c));
    }
    return s;
}

TEST(TextConversion, RandomTextsRoundTripAndAgreeWithQt) {
    std::mt19937 rng(20240611);
    for (int round = 0; round < 200; ++round) {
        std::size_t astral = 0;
        const std::wstring w = randomText(rng, std::size_t(round * 7 + 1), astral);
        const QString q = toQString(w);
        // For valid text Qt's own decoder must agree unit for unit.
        ASSERT_EQ(q, QString::fromUcs4(reinterpret_cast<const char32_t*>(w.data()),
                                       qsizetype(w.size())));
        const std::wstring back = toWString(q);
        ASSERT_EQ(back.size(), w.size() + astral);
        EXPECT_EQ(back.substr(0, w.size()), w);
        EXPECT_EQ(back.substr(w.size()), std::wstring(astral, L'\0'));
        EXPECT_EQ(q.toStdWString(), w);
    }
}

TEST(TextConversion, RandomUnitSequencesWithStraySurrogatesRoundTripFromUtf16) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> pick(0, 5);
    std::uniform_int_distribution<std::uint32_t> any(1, 0xFFFF), high(0xD800, 0xDBFF),
        low(0xDC00, 0xDFFF);
    for (int round = 0; round < 300; ++round) {
        std::vector<char16_t> u;
        for (int i = 0; i < 40; ++i) {
            const int p = pick(rng);
            u.push_back(static_cast<char16_t>(p == 0 ? high(rng) : p == 1 ? low(rng) : any(rng)));
        }
        const QString q = QString::fromUtf16(u.data(), qsizetype(u.size()));
        std::size_t pairs = 0;
        for (std::size_t i = 0; i + 1 < u.size(); ++i) {
            if (QChar::isHighSurrogate(u[i]) && QChar::isLowSurrogate(u[i + 1])) ++pairs, ++i;
        }
        const std::wstring w = toWString(q);
        ASSERT_EQ(w.size(), u.size());
        EXPECT_EQ(w.substr(u.size() - pairs), std::wstring(pairs, L'\0'));
        // Back to UTF-16 from the meaningful part only: the units come back exactly.
        EXPECT_EQ(units(toQString(w.data(), int(u.size() - pairs))), u);
    }
}

// Percent encoding ---------------------------------------------------------------------------

TEST(HexEncode, EveryByteIsAPercentAndTwoLowerCaseDigits) {
    EXPECT_STREQ(hexEncode('A'), "%41");
    EXPECT_STREQ(hexEncode('/'), "%2f");
    EXPECT_STREQ(hexEncode('\0'), "%00");
    EXPECT_STREQ(hexEncode('\xff'), "%ff");  // a negative char on this platform
    for (int b = 0; b < 256; ++b) {
        const char* text = hexEncode(static_cast<char>(b));
        ASSERT_EQ(std::strlen(text), 3u);
        EXPECT_EQ(text[0], '%');
        EXPECT_EQ(std::strtol(text + 1, nullptr, 16), b);
        EXPECT_EQ(QString::fromLatin1(text), QString::fromLatin1(text).toLower());
    }
}

// Case-insensitive comparison --------------------------------------------------------------------

TEST(Wcsicmp, OrdersAsTheLowerCaseFormsDo) {
    struct Row {
        const wchar_t* a;
        const wchar_t* b;
        int expected;
    };
    const Row rows[] = {
        {L"abc", L"ABC", 0},  {L"ab", L"abc", -1},  {L"abc", L"ab", 1},
        {L"", L"", 0},        {L"", L"a", -1},      {L"a", L"", 1},
        {L"abd", L"ABC", 1},  {L"ABC", L"abd", -1}, {L"Zebra", L"apple", 1},
        // Folding is to lower case: '_' (0x5F) sorts before 'a' whatever the case of 'A'.
        {L"_", L"A", -1},     {L"A", L"_", 1},
        // Differences far apart still give -1 and 1, never the distance.
        {L"a", L"z", -1},     {L"\x0100", L"a", 1},
        // Wide characters are compared as they are, never folded.
        {L"\x0100", L"\x0101", -1},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(wcsicmp(r.a, r.b), r.expected)
            << QString::fromWCharArray(r.a).toStdString() << " vs "
            << QString::fromWCharArray(r.b).toStdString();
    }
}

}  // namespace
}  // namespace mirel
