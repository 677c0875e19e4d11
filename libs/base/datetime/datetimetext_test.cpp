#include "base/datetime/datetimetext.h"

#include <gtest/gtest.h>

#include <atomic>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/datetime/datetime_test.h"
#include "base/datetime/datetimetext_p.h"
#include "base/testing/testutil.h"

namespace mirel {
namespace {

using testing::dt;
using testing::show;

// The message thrown, or empty.
QString parse(const QString& text, DateTime& into) {
    try {
        text >> into;
    } catch (const QString& message) {
        return message;
    }
    return QString();
}

TEST(DateTimeText, AcceptedFormsReadTheFieldsTheyReach) {
    const DateTime start = dt(1999, 9, 9, 9, 9, 9, 1, 15);  // fields not reached keep these
    auto kept = [&](int y, int mo = 9, int d = 9) { return dt(y, mo, d, 9, 9, 9, 1, 15); };
    const std::pair<const char*, DateTime> rows[] = {
        {"2006", kept(2006)}, {"2006-07", kept(2006, 7)}, {" 2006 - 07 - 04\t\n\u00a0", kept(2006, 7, 4)},
        // No zone is UTC; a fraction is cut; text after Z is not looked at.
        {"2006-07-04T10:20:30", dt(2006, 7, 4, 10, 20, 30)}, {" 2006-07-04 T 10 : 20 : 30.999999 Z ", dt(2006, 7, 4, 10, 20, 30)},
        {"2006-07-04T10:20:59.99999999999999999Z", dt(2006, 7, 4, 10, 20, 60)},
        {"2006-07-04T10:20:30Zjunk-:T", dt(2006, 7, 4, 10, 20, 30)},
        // The zone's hours give the sign of its minutes.
        {"2006-07-04T10:20:30+05:30", dt(2006, 7, 4, 10, 20, 30, 5, 30)},
        {"2006-07-04T10:20:30-5:30", dt(2006, 7, 4, 10, 20, 30, -5, -30)},
        {"2006-07-04T10:20:30-0:30", dt(2006, 7, 4, 10, 20, 30, 0, 30)},
        // A leading sign belongs to the number; a year before "-" needs only 2 characters.
        {"-0044-03-15", kept(-44, 3, 15)}, {"06-07", kept(6, 7)}, {"+2006", kept(2006)},
        // No range checks, fields cut to their widths, numbers read as scanf reads them.
        {"2006-99-45T24:60:300+14:99", dt(2006, 99, 45, 24, 60, 44, 14, 99)}, {"2006-7a-04", kept(2006, 7, 4)},
        {"4294967296", kept(0)}, {"2006-07-04T10:20:3e1Z", dt(2006, 7, 4, 10, 20, 30)},
        {"2006-07-04T10:20:-1Z", dt(2006, 7, 4, 10, 20, 255)}, {"2006-07-04T10:20:infZ", dt(2006, 7, 4, 10, 20, 255)},
    };
    for (const auto& [text, expected] : rows) {
        DateTime d = start;
        ASSERT_EQ(parse(QString::fromUtf8(text), d), QString()) << text;
        EXPECT_EQ(show(d), show(expected)) << text;
    }
    DateTime d = start;
    EXPECT_EQ(parse(QString(), d), QString());  // a null string is no error and no change
    EXPECT_EQ(show(d), show(start));
}

TEST(DateTimeText, RefusedFormsThrowTheWholeText) {
    for (const char* text :
         {"", "06", " 2 0 0 ", "6-07-04", "2006-7", "2006-07-004", "2006-", "2006-07-04-", "2006-07-04T", "2006-07-04T10:20",
          "2006-07-04T1:20:30Z", "2006-07-04T10:20:3Z", "2006-07-04T10:20:30-05:00", "2006-07-04T10:20:30+5:30",
          "2006-07-04T10:20:30+05", "2006-07-04T10:20:30+05:300", "2006-07-04T10:20:30+05:30Z", "2006-07T10:20:30Z",
          "2006-07-04 10:20:30", "2006+07", "abcd", "2006-ab", "2006-07-04T10:20:abZ", "Z", ":", "--2006",
          "2006-07-04T10:20:30--5:30", "2006-07-04T10:20:30-5:ab"}) {
        DateTime d;
        const QString input = QString::fromUtf8(text);
        EXPECT_EQ(parse(input, d), "Could not parse time value " + input) << text;
    }
    DateTime d;  // fields read before the failure keep their values
    EXPECT_FALSE(parse("2006-07-04T10:20:30-05:00", d).isEmpty());
    EXPECT_EQ(show(d), show(dt(2006, 7, 4, 10, 20, 30)));
}

// The readers against swscanf on generated fields; numbers use "." whatever the locale.
TEST(DateTimeText, FieldReadersAgreeWithSwscanf) {
    std::setlocale(LC_ALL, "C.UTF-8");
    std::mt19937 rng(42);
    const wchar_t alphabet[] = L"0123456789000999+-..eExXpPaAfFnNiItTyY\u00e9\u0660";
    std::uniform_int_distribution<int> len(0, 14), ch(0, int(std::size(alphabet)) - 2), kind(0, 5);
    std::vector<std::wstring> fields = {L"2147483648", L"-2147483649", L"99999999999999999999", L"1e", L"1.",
                                        L".5", L"59.9999999", L"0x1p4", L"-infinity", L"nan(12)", L"-", L"1e400"};
    for (int i = 0; i < 200000; ++i) {
        std::wstring s;
        const bool digits = kind(rng) == 0;
        for (int n = len(rng) + (digits ? 5 : 0); n > 0; --n) s += digits ? wchar_t(L'0' + ch(rng) % 10) : alphabet[ch(rng)];
        fields.push_back(s);
    }
    for (const std::wstring& f : fields) {
        const std::string shown = QString::fromStdWString(f).toStdString();
        int expectedInt = 0, gotInt = 0;
        const bool intOk = std::swscanf(f.c_str(), L"%d", &expectedInt) == 1;
        ASSERT_EQ(datetime_detail::readInt(f.data(), int(f.size()), gotInt), intOk) << shown;
        ASSERT_TRUE(!intOk || gotInt == expectedInt) << shown;
        double d = 0;
        std::int64_t got = 0, expected = 0;
        const bool doubleOk = std::swscanf(f.c_str(), L"%lf", &d) == 1;
        ASSERT_EQ(datetime_detail::readSeconds(f.data(), int(f.size()), got), doubleOk) << shown;
        if (doubleOk && !std::isnan(d)) expected = std::int64_t(std::fmin(std::fmax(std::trunc(d), -2147483648.0), 2147483647.0));
        ASSERT_TRUE(!doubleOk || got == expected) << shown;
    }
    std::setlocale(LC_ALL, "C");
}

// The writer against snprintf with the same formats, on fields of every width and sign; and
// the values whose fields the reader can take (two-character fields, no negative zone) read
// back the same.
TEST(DateTimeText, WriterAgreesWithSnprintfAndReadsBack) {
    EXPECT_EQ(dt(2006, 1, 1, 0, 0, 0, 0, 30).toString(), "2006-01-01T00:00:00-00:30");  // sign of the hours
    std::mt19937 rng(20061);
    std::uniform_int_distribution<int> any8(0, 255), often(0, 3);
    std::uniform_int_distribution<std::int32_t> year(INT32_MIN, INT32_MAX);
    for (int i = 0; i < 20000; ++i) {
        auto field = [&](int usual) { return often(rng) == 0 ? any8(rng) : usual; };
        const DateTime v = dt(often(rng) == 0 ? year(rng) : year(rng) % 20000, field(1 + any8(rng) % 12),
                              field(any8(rng) % 3 ? 1 : 1 + any8(rng) % 31), field(any8(rng) % 2 ? 0 : any8(rng) % 24),
                              field(0), field(0), field(any8(rng) % 2 ? 0 : any8(rng) % 29 - 14), field(0));
        char e[256];
        const int h = v.tzHours, m = v.tzMinutes;
        if (v.hour || v.minute || v.second || h || m) {
            const int n = std::snprintf(e, sizeof e, "%04d-%02d-%02dT%02d:%02d:%02d", v.year, v.month, v.day, v.hour,
                                        v.minute, v.second);
            if (h || m) std::snprintf(e + n, 64, "%c%02d:%02d", h > 0 ? '+' : '-', std::abs(h), std::abs(m));
            else std::strcpy(e + n, "Z");
        } else if (v.month == 1 && v.day == 1) {
            std::snprintf(e, sizeof e, "%04d", v.year);
        } else if (v.day == 1) {
            std::snprintf(e, sizeof e, "%04d-%02d", v.year, v.month);
        } else {
            std::snprintf(e, sizeof e, "%04d-%02d-%02d", v.year, v.month, v.day);
        }
        ASSERT_EQ(v.toString(), QString::fromLatin1(e));
        if (v.month > 99 || v.day > 99 || v.hour > 99 || v.minute > 99 || h < 0 || h > 99 || m < 0 || m > 99 || (!h && m)) {
            continue;
        }
        DateTime back;
        ASSERT_EQ(parse(v.toString(), back), QString()) << e;
        ASSERT_EQ(show(back), show(v)) << e;
    }
}

TEST(DateTimeText, StreamsCarryTheTextForms) {
    QString in = QStringLiteral("2006-07-04T10:20:30\n+05:30"), bad = QStringLiteral("2006-7"), out;
    QTextStream input(&in), badInput(&bad), output(&out);
    DateTime d;
    input >> d;
    EXPECT_EQ(show(d), show(dt(2006, 7, 4, 10, 20, 30, 5, 30)));
    EXPECT_THROW(badInput >> d, QString);
    output << d << " | " << dt(2006, 7, 1);
    output.flush();
    EXPECT_EQ(out, QStringLiteral("2006-07-04T10:20:30+05:30 | 2006-07"));
    Utf8OStream bytes;
    bytes << dt(-44, 1, 1);
    EXPECT_EQ(QByteArray(bytes.data(), bytes.length()), QByteArray("-044"));

    // QDateTime goes through Qt's text form; the double conversions pass numbers alone.
    const QDateTime when(QDate(2006, 7, 4), QTime(10, 20, 30));
    QString qtText;
    QTextStream qtOut(&qtText), qtIn(&qtText);
    qtOut << when;
    qtOut.flush();
    EXPECT_EQ(qtText, when.toString(Qt::TextDate));
    QDateTime back;
    qtIn >> back;
    EXPECT_EQ(back, when);
    EXPECT_EQ(convertToDouble(2.5) + convertToDouble(qtText) + convertToDouble(when) + convertFromDouble(1.0, 4.0), 6.5);
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
            if (!parse(text, d).isEmpty() || d.toString() != written || !(d == first)) ++failures;
        }
    });
    EXPECT_EQ(failures.load(), 0);
}

}  // namespace
}  // namespace mirel
