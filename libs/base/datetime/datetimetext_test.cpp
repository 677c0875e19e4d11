#include "base/datetime/datetimetext.h"

#include <gtest/gtest.h>

#include <QChar>

#include <atomic>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "base/datetime/datetimetext_p.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

std::string show(const DateTime& d) {
    return std::to_string(d.year) + "-" + std::to_string(d.month) + "-" + std::to_string(d.day) + " " +
           std::to_string(d.hour) + ":" + std::to_string(d.minute) + ":" + std::to_string(d.second) + " tz " +
           std::to_string(d.tzHours) + ":" + std::to_string(d.tzMinutes);
}

DateTime make(int y, int mo, int d, int h, int mi, int s, int tzh = 0, int tzm = 0) {
    DateTime v;
    v.set(y, mo, d, h, mi, s);
    v.tzHours = static_cast<std::int8_t>(tzh);
    v.tzMinutes = static_cast<std::int8_t>(tzm);
    return v;
}

// Parses `text` into a copy of `start`; the message thrown, or empty.
QString parse(const QString& text, DateTime& into) {
    try {
        text >> into;
    } catch (const QString& message) {
        return message;
    }
    return QString();
}

// Accepted forms ---------------------------------------------------------------------------

struct Accepted {
    const char* text;
    DateTime expected;  // read into a DateTime whose fields are all distinctive
    const char* written;
};

TEST(DateTimeText, AcceptedFormsReadTheFieldsTheyReach) {
    // Fields the text does not reach keep these values.
    const DateTime start = make(1999, 9, 9, 9, 9, 9, 1, 15);
    const Accepted rows[] = {
        {"2006", make(2006, 9, 9, 9, 9, 9, 1, 15), "2006-09-09T09:09:09+01:15"},
        {"2006-07", make(2006, 7, 9, 9, 9, 9, 1, 15), nullptr},
        {"2006-07-04", make(2006, 7, 4, 9, 9, 9, 1, 15), nullptr},
        {"2006-07-04T10:20:30Z", make(2006, 7, 4, 10, 20, 30), "2006-07-04T10:20:30Z"},
        {"2006-07-04T10:20:30", make(2006, 7, 4, 10, 20, 30), "2006-07-04T10:20:30Z"},
        {"2006-07-04T10:20:30.9Z", make(2006, 7, 4, 10, 20, 30), nullptr},
        {"2006-07-04T10:20:30.999999Z", make(2006, 7, 4, 10, 20, 30), nullptr},
        {"2006-07-04T10:20:59.99999999999999999Z", make(2006, 7, 4, 10, 20, 60), nullptr},
        {"2006-07-04T10:20:30+05:30", make(2006, 7, 4, 10, 20, 30, 5, 30), "2006-07-04T10:20:30+05:30"},
        {"2006-07-04T10:20:30-5:30", make(2006, 7, 4, 10, 20, 30, -5, -30), "2006-07-04T10:20:30-05:30"},
        {"2006-07-04T10:20:30-0:30", make(2006, 7, 4, 10, 20, 30, 0, 30), "2006-07-04T10:20:30-00:30"},
        {"2006-07-04T10:20:30Zjunk-:T", make(2006, 7, 4, 10, 20, 30), nullptr},
        {"2006 - 07 - 04", make(2006, 7, 4, 9, 9, 9, 1, 15), nullptr},
        {" 2006-07-04 T 10 : 20 : 30 Z ", make(2006, 7, 4, 10, 20, 30), nullptr},
        {"2006-07-04\t\n\u00a0", make(2006, 7, 4, 9, 9, 9, 1, 15), nullptr},
        // A leading sign belongs to the number; a year before "-" needs only 2 characters.
        {"-0044-03-15", make(-44, 3, 15, 9, 9, 9, 1, 15), nullptr},
        {"06-07", make(6, 7, 9, 9, 9, 9, 1, 15), nullptr},
        {"+2006", make(2006, 9, 9, 9, 9, 9, 1, 15), nullptr},
        {"12345", make(12345, 9, 9, 9, 9, 9, 1, 15), nullptr},
        // No range checks; fields are cut to their widths; "%d" stops at the first non-digit.
        {"2006-13-45", make(2006, 13, 45, 9, 9, 9, 1, 15), nullptr},
        {"2006-99-04T24:60:61Z", make(2006, 99, 4, 24, 60, 61), nullptr},
        {"2006-7a-04", make(2006, 7, 4, 9, 9, 9, 1, 15), nullptr},
        {"2006-07-04T10:20:300Z", make(2006, 7, 4, 10, 20, 44), nullptr},
        {"2006-07-04T10:20:3e1Z", make(2006, 7, 4, 10, 20, 30), nullptr},
        {"2006-07-04T10:20:0x1EZ", make(2006, 7, 4, 10, 20, 30), nullptr},
        {"2006-07-04T10:20:-1Z", make(2006, 7, 4, 10, 20, 255), nullptr},
        {"2006-07-04T10:20:infZ", make(2006, 7, 4, 10, 20, 255), nullptr},
        {"2006-07-04T10:20:nanZ", make(2006, 7, 4, 10, 20, 0), nullptr},
        {"2006-07-04T10:20:30+14:99", make(2006, 7, 4, 10, 20, 30, 14, 99), nullptr},
        {"4294967296", make(0, 9, 9, 9, 9, 9, 1, 15), nullptr},
    };
    for (const Accepted& r : rows) {
        DateTime d = start;
        const QString text = QString::fromUtf8(r.text);
        ASSERT_EQ(parse(text, d), QString()) << r.text;
        EXPECT_EQ(show(d), show(r.expected)) << r.text;
        if (r.written != nullptr) {
            EXPECT_EQ(d.toString(), QString::fromUtf8(r.written)) << r.text;
        }
    }
}

TEST(DateTimeText, ANullStringIsNoErrorAndChangesNothing) {
    DateTime d = make(1999, 9, 9, 9, 9, 9, 1, 15);
    EXPECT_EQ(parse(QString(), d), QString());
    EXPECT_EQ(show(d), show(make(1999, 9, 9, 9, 9, 9, 1, 15)));
}

// Refused forms ----------------------------------------------------------------------------

TEST(DateTimeText, RefusedFormsThrowTheWholeText) {
    const char* rows[] = {
        "",           "06",          "200",         " 2 0 0 ",      "2006-7",       "2006-07-4",
        "2006-07-004", "2006-",      "2006-07-",    "2006-07-04-",  "2006-07-04T",  "2006-07-04T10",
        "2006-07-04T10:20", "2006-07-04T1:20:30Z", "2006-07-04T10:2:30Z", "2006-07-04T10:20:3Z",
        "2006-07-04T10:20:30-05:00", "2006-07-04T10:20:30+5:30", "2006-07-04T10:20:30+05",
        "2006-07-04T10:20:30+05:3",  "2006-07-04T10:20:30+05:300", "2006-07-04T10:20:30+05:30Z",
        "2006-07T10:20:30Z", "2006T10:20:30Z", "2006-07-04 10:20:30", "2006:07",
        "2006+07",    "2006-07+04",  "abcd",        "ab-07",        "2006-ab",      "2006-07-04Tab:20:30Z",
        "2006-07-04T10:20:abZ", "2006-07-04T10:20:30+ab:30", "Z", "T", ":", "2006-07-04T10:20:30--5:30",
        "--2006", "2006-07-04T10:20:30-5:ab",
    };
    for (const char* text : rows) {
        DateTime d;
        const QString input = QString::fromUtf8(text);
        EXPECT_EQ(parse(input, d), "Could not parse time value " + input) << text;
    }
}

TEST(DateTimeText, FieldsReadBeforeAFailureKeepTheirValues) {
    DateTime d;
    EXPECT_FALSE(parse("2006-07-04T10:20:30-05:00", d).isEmpty());
    EXPECT_EQ(show(d), show(make(2006, 7, 4, 10, 20, 30)));
    d = DateTime();
    EXPECT_FALSE(parse("2006-07-4", d).isEmpty());
    EXPECT_EQ(show(d), show(make(2006, 7, 1, 0, 0, 0)));
}

// Writing ----------------------------------------------------------------------------------

TEST(DateTimeText, WritingPicksTheShortestForm) {
    const struct {
        DateTime value;
        const char* text;
    } rows[] = {
        {make(2006, 1, 1, 0, 0, 0), "2006"},
        {make(2006, 7, 1, 0, 0, 0), "2006-07"},
        {make(2006, 1, 4, 0, 0, 0), "2006-01-04"},
        {make(2006, 7, 4, 0, 0, 0), "2006-07-04"},
        {make(2006, 1, 1, 0, 0, 1), "2006-01-01T00:00:01Z"},
        {make(2006, 1, 1, 0, 1, 0), "2006-01-01T00:01:00Z"},
        {make(2006, 1, 1, 1, 0, 0), "2006-01-01T01:00:00Z"},
        {make(2006, 1, 1, 0, 0, 0, 0, 30), "2006-01-01T00:00:00-00:30"},
        {make(2006, 1, 1, 0, 0, 0, 1, 0), "2006-01-01T00:00:00+01:00"},
        {make(2006, 1, 1, 0, 0, 0, -12, -45), "2006-01-01T00:00:00-12:45"},
        {make(2006, 1, 1, 0, 0, 0, -128, -128), "2006-01-01T00:00:00-128:128"},
        {make(0, 1, 1, 0, 0, 0), "0000"},
        {make(-44, 1, 1, 0, 0, 0), "-044"},
        {make(-5, 3, 1, 0, 0, 0), "-005-03"},
        {make(-12345, 1, 1, 0, 0, 0), "-12345"},
        {make(std::numeric_limits<std::int32_t>::min(), 1, 1, 0, 0, 0), "-2147483648"},
        {make(2006, 255, 200, 0, 0, 0), "2006-255-200"},
        {make(2006, 1, 0, 0, 0, 0), "2006-01-00"},
    };
    for (const auto& r : rows) EXPECT_EQ(r.value.toString(), QString::fromUtf8(r.text)) << r.text;
}

// The writer against snprintf with the same formats, on random fields of every width.
TEST(DateTimeText, WriterAgreesWithSnprintf) {
    std::mt19937 rng(20061);
    std::uniform_int_distribution<int> any8(0, 255), smallOrAny(0, 3);
    std::uniform_int_distribution<std::int32_t> year(std::numeric_limits<std::int32_t>::min(),
                                                     std::numeric_limits<std::int32_t>::max());
    for (int i = 0; i < 20000; ++i) {
        DateTime v;
        v.year = smallOrAny(rng) == 0 ? year(rng) : year(rng) % 20000;
        auto field = [&](int usual) { return smallOrAny(rng) == 0 ? any8(rng) : usual; };
        v.month = static_cast<std::uint8_t>(field(1 + any8(rng) % 12));
        v.day = static_cast<std::uint8_t>(field(any8(rng) % 3 == 0 ? 1 : 1 + any8(rng) % 31));
        v.hour = static_cast<std::uint8_t>(field(any8(rng) % 2 == 0 ? 0 : any8(rng) % 24));
        v.minute = static_cast<std::uint8_t>(field(0));
        v.second = static_cast<std::uint8_t>(field(0));
        v.tzHours = static_cast<std::int8_t>(field(any8(rng) % 2 == 0 ? 0 : any8(rng) % 29 - 14));
        v.tzMinutes = static_cast<std::int8_t>(field(0));
        char expected[256];
        if (v.hour || v.minute || v.second || v.tzHours || v.tzMinutes) {
            if (v.tzHours || v.tzMinutes) {
                std::snprintf(expected, sizeof expected, "%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", v.year,
                              v.month, v.day, v.hour, v.minute, v.second, v.tzHours > 0 ? '+' : '-',
                              std::abs(v.tzHours), std::abs(v.tzMinutes));
            } else {
                std::snprintf(expected, sizeof expected, "%04d-%02d-%02dT%02d:%02d:%02dZ", v.year, v.month,
                              v.day, v.hour, v.minute, v.second);
            }
        } else if (v.month == 1 && v.day == 1) {
            std::snprintf(expected, sizeof expected, "%04d", v.year);
        } else if (v.day == 1) {
            std::snprintf(expected, sizeof expected, "%04d-%02d", v.year, v.month);
        } else {
            std::snprintf(expected, sizeof expected, "%04d-%02d-%02d", v.year, v.month, v.day);
        }
        ASSERT_EQ(v.toString(), QString::fromLatin1(expected));
    }
}

// What the writer produces reads back to the same value, in every form but the negative
// zones (their hours take three characters, which the reader refuses: kept).
TEST(DateTimeText, ShortestFormsRoundTrip) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> pick(0, 9999);
    for (int i = 0; i < 5000; ++i) {
        DateTime v = make(pick(rng) % 3 == 0 ? -pick(rng) : pick(rng) * 3, 1 + pick(rng) % 12, 1 + pick(rng) % 28,
                          0, 0, 0);
        const int form = pick(rng) % 5;
        if (form == 0) v.month = 1, v.day = 1;
        if (form == 1) v.day = 1;
        if (form >= 3) v.set(v.year, v.month, v.day, pick(rng) % 24, pick(rng) % 60, pick(rng) % 60);
        if (form == 4) v.tzHours = static_cast<std::int8_t>(1 + pick(rng) % 14), v.tzMinutes = pick(rng) % 2 ? 30 : 0;
        DateTime back;
        ASSERT_EQ(parse(v.toString(), back), QString()) << v.toString().toStdString();
        ASSERT_EQ(show(back), show(v)) << v.toString().toStdString();
    }
}

// Field readers against swscanf ------------------------------------------------------------

std::wstring randomField(std::mt19937& rng) {
    static const wchar_t alphabet[] = L"0123456789000999+-..eExXpPaAfFnNiItTyY\u00e9\u0660";
    std::uniform_int_distribution<int> len(0, 14), ch(0, int(std::size(alphabet)) - 2), kind(0, 5);
    std::wstring s;
    if (kind(rng) == 0) {
        for (int i = len(rng) + 5; i > 0; --i) s += wchar_t(L'0' + ch(rng) % 10);  // long runs of digits
    } else {
        for (int i = len(rng); i > 0; --i) s += alphabet[ch(rng)];
    }
    return s;
}

TEST(DateTimeText, FieldReadersAgreeWithSwscanf) {
    std::setlocale(LC_ALL, "C.UTF-8");
    std::mt19937 rng(42);
    std::vector<std::wstring> fields = {L"12",       L"-12",  L"+7",         L"2147483647",  L"2147483648",
                                        L"-2147483649", L"99999999999999999999", L"0x1F", L"1e3", L"1e",
                                        L"1.",       L".5",   L"-.5",        L"30.9",        L"59.9999999",
                                        L"0x1p4",    L"inf",  L"-infinity",  L"nan(12)",     L"-",
                                        L"+",        L"",     L"1e400",      L"-1e400",      L"000000000012"};
    for (int i = 0; i < 200000; ++i) fields.push_back(randomField(rng));
    for (const std::wstring& f : fields) {
        int expectedInt = 0, gotInt = 0;
        const bool intOk = std::swscanf(f.c_str(), L"%d", &expectedInt) == 1;
        ASSERT_EQ(datetime_detail::readInt(f.data(), int(f.size()), gotInt), intOk) << QString::fromStdWString(f).toStdString();
        if (intOk) {
            ASSERT_EQ(gotInt, expectedInt) << QString::fromStdWString(f).toStdString();
        }

        double d = 0;
        std::int64_t got = 0;
        const bool doubleOk = std::swscanf(f.c_str(), L"%lf", &d) == 1;
        ASSERT_EQ(datetime_detail::readSeconds(f.data(), int(f.size()), got), doubleOk)
            << QString::fromStdWString(f).toStdString();
        if (!doubleOk) continue;
        std::int64_t expected = 0;
        if (!std::isnan(d)) {
            d = std::trunc(d);
            expected = d < -2147483648.0 ? -2147483648LL : (d > 2147483647.0 ? 2147483647LL : std::int64_t(d));
        }
        ASSERT_EQ(got, expected) << QString::fromStdWString(f).toStdString();
    }
    std::setlocale(LC_ALL, "C");
}

// The reader skips QChar::isSpace blanks; swscanf would skip iswspace ones at a field's
// start. Every blank that swscanf knows must be one that the reader skips, or a field
// could begin with one.
TEST(DateTimeText, EveryBlankOfSwscanfIsSkipped) {
    for (const char* locale : {"C", "C.UTF-8"}) {
        if (std::setlocale(LC_ALL, locale) == nullptr) continue;
        for (char32_t c = 1; c < 0x10000; ++c) {
            if (std::iswspace(wint_t(c))) {
                EXPECT_TRUE(QChar(char16_t(c)).isSpace()) << locale << " " << unsigned(c);
            }
        }
    }
    std::setlocale(LC_ALL, "C");
}

// Streams and conversions ------------------------------------------------------------------

TEST(DateTimeText, StreamsCarryTheTextForms) {
    QString in = QStringLiteral("2006-07-04T10:20:30+05:30");
    QTextStream input(&in);
    DateTime d;
    input >> d;
    EXPECT_EQ(show(d), show(make(2006, 7, 4, 10, 20, 30, 5, 30)));

    QString bad = QStringLiteral("2006-7");
    QTextStream badInput(&bad);
    EXPECT_THROW(badInput >> d, QString);

    QString out;
    QTextStream output(&out);
    output << d << QStringLiteral(" | ") << make(2006, 7, 1, 0, 0, 0);
    output.flush();
    EXPECT_EQ(out, QStringLiteral("2006-07-04T10:20:30+05:30 | 2006-07"));

    Utf8OStream bytes;
    bytes << make(-44, 1, 1, 0, 0, 0);
    EXPECT_EQ(QByteArray(bytes.data(), bytes.length()), QByteArray("-044"));

    const QDateTime when(QDate(2006, 7, 4), QTime(10, 20, 30));
    QString qtText;
    QTextStream qtOut(&qtText);
    qtOut << when;
    qtOut.flush();
    EXPECT_EQ(qtText, when.toString(Qt::TextDate));
    QTextStream qtIn(&qtText);
    QDateTime back;
    qtIn >> back;
    EXPECT_EQ(back, when);

    EXPECT_EQ(convertToDouble(2.5), 2.5);
    EXPECT_EQ(convertToDouble(QStringLiteral("2.5")), 0.0);
    EXPECT_EQ(convertToDouble(when), 0.0);
    EXPECT_EQ(convertFromDouble(1.0, 2.5), 2.5);
    QDateTime unchanged = when;
    convertFromDouble(unchanged, 2.5);
    EXPECT_EQ(unchanged, when);
    QString text = QStringLiteral("x");
    convertFromDouble(text, 2.5);
    EXPECT_EQ(text, QStringLiteral("x"));
}

// Parsing and writing keep no shared state: threads started together get their own answers.
TEST(DateTimeText, ParsingAndWritingAreReentrant) {
    const char* texts[] = {"2006-07-04T10:20:30+05:30", "1999-12-31T23:59:59Z", "2006-07", "-0044-03-15",
                           "2006-07-04T10:20:30.123456-5:30"};
    std::atomic<int> failures{0};
    testing::runTogether(5, [&](int t) {
        const QString text = QString::fromLatin1(texts[t]);
        DateTime first;
        text >> first;
        const QString written = first.toString();
        for (int i = 0; i < 50000; ++i) {
            DateTime d;
            try {
                text >> d;
            } catch (const QString&) {
                ++failures;
                continue;
            }
            if (d.toString() != written || !(d == first)) ++failures;
        }
    });
    EXPECT_EQ(failures.load(), 0);
}

}  // namespace
}  // namespace mirel
