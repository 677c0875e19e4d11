// Reading and writing the XML Schema text forms of DateTime, and the stream operators.
//
// Fields are read the way swscanf's "%d" and "%lf" read them. The common shapes (a few
// digits, maybe a short fraction) are read here directly; everything else, from long digit
// runs to exponents, hexadecimal and "inf", goes to swscanf itself, so the answers are
// swscanf's by construction.
#include "base/datetime/datetimetext.h"

#include <QVarLengthArray>

#include <locale.h>

#include <cmath>
#include <cstdint>
#include <cwchar>
#include <limits>

#include "base/datetime/datetimetext_p.h"

namespace mirel {

namespace datetime_detail {

namespace {

// Numbers in the text forms are written with "." whatever the application's locale: the
// calling thread reads them in the C locale (a per-thread switch, so other threads and the
// process locale are untouched).
class CNumbers {
public:
    CNumbers() : mPrevious(uselocale(cLocale())) {}
    ~CNumbers() { uselocale(mPrevious); }
    CNumbers(const CNumbers&) = delete;
    CNumbers& operator=(const CNumbers&) = delete;

private:
    static locale_t cLocale() {
        static const locale_t c = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
        return c;
    }
    locale_t mPrevious;
};

}  // namespace

bool readInt(const wchar_t* text, int length, int& value) {
    int i = 0;
    bool negative = false;
    if (length > 0 && (text[0] == L'-' || text[0] == L'+')) negative = text[i++] == L'-';
    const int digitsStart = i;
    int v = 0;
    while (i < length && i - digitsStart < 10 && text[i] >= L'0' && text[i] <= L'9') {
        v = v * 10 + (text[i] - L'0');
        ++i;
        // Nine digits cannot overflow; a tenth might, and swscanf decides what it gives.
        if (i - digitsStart == 9) break;
    }
    const int digits = i - digitsStart;
    if (digits > 0 && !(i < length && text[i] >= L'0' && text[i] <= L'9')) {
        value = negative ? -v : v;
        return true;
    }
    std::wstring field(text, std::size_t(length));
    const CNumbers c;
    return std::swscanf(field.c_str(), L"%d", &value) == 1;
}

bool readSeconds(const wchar_t* text, int length, std::int64_t& value) {
    auto isDigit = [&](int k) { return k < length && text[k] >= L'0' && text[k] <= L'9'; };
    int i = 0;
    bool negative = false;
    if (length > 0 && (text[0] == L'-' || text[0] == L'+')) negative = text[i++] == L'-';
    std::int64_t whole = 0;
    const int wholeStart = i;
    while (isDigit(i) && i - wholeStart < 7) whole = whole * 10 + (text[i++] - L'0');
    const int wholeDigits = i - wholeStart;
    // Up to six digits each side: the fraction can then never round the value up to the
    // next whole second, so truncation keeps the whole part exactly.
    bool simple = wholeDigits > 0 && wholeDigits <= 6;
    if (simple && i < length && text[i] == L'.') {
        const int fractionStart = ++i;
        while (isDigit(i) && i - fractionStart < 7) ++i;
        simple = i - fractionStart <= 6;
    }
    // A digit, an exponent, or the x of a hexadecimal number would change the value.
    if (simple && i < length) {
        const wchar_t c = text[i];
        simple = !(c == L'.' || c == L'e' || c == L'E' || c == L'x' || c == L'X' || (c >= L'0' && c <= L'9'));
    }
    if (simple) {
        value = negative ? -whole : whole;
        return true;
    }
    std::wstring field(text, std::size_t(length));
    double d = 0;
    const CNumbers c;
    if (std::swscanf(field.c_str(), L"%lf", &d) != 1) return false;
    // Toward zero; beyond 32 bits it saturates, and NaN reads as 0, before the cut to the
    // field's 8 bits.
    if (std::isnan(d)) {
        value = 0;
    } else {
        d = std::trunc(d);
        constexpr double lo = std::numeric_limits<std::int32_t>::min();
        constexpr double hi = std::numeric_limits<std::int32_t>::max();
        value = static_cast<std::int64_t>(d < lo ? lo : (d > hi ? hi : d));
    }
    return true;
}

int formatDateTime(const DateTime& v, char* out) {
    char* p = out;
    auto number = [&p](std::int64_t n, int width) {
        // "%0<width>d": the sign takes one place of the width.
        if (n < 0) {
            *p++ = '-';
            n = -n;
            --width;
        }
        char digits[24];
        int count = 0;
        do {
            digits[count++] = char('0' + n % 10);
            n /= 10;
        } while (n != 0);
        for (int k = count; k < width; ++k) *p++ = '0';
        while (count > 0) *p++ = digits[--count];
    };
    number(v.year, 4);
    if (v.hour != 0 || v.minute != 0 || v.second != 0 || v.tzHours != 0 || v.tzMinutes != 0) {
        *p++ = '-';
        number(v.month, 2);
        *p++ = '-';
        number(v.day, 2);
        *p++ = 'T';
        number(v.hour, 2);
        *p++ = ':';
        number(v.minute, 2);
        *p++ = ':';
        number(v.second, 2);
        if (v.tzHours != 0 || v.tzMinutes != 0) {
            // The sign comes from the hours alone, so +00:30 is written -00:30. Kept.
            *p++ = v.tzHours > 0 ? '+' : '-';
            number(std::abs(int{v.tzHours}), 2);
            *p++ = ':';
            number(std::abs(int{v.tzMinutes}), 2);
        } else {
            *p++ = 'Z';
        }
    } else if (!(v.month == 1 && v.day == 1)) {
        *p++ = '-';
        number(v.month, 2);
        if (v.day != 1) {
            *p++ = '-';
            number(v.day, 2);
        }
    }
    return int(p - out);
}

}  // namespace datetime_detail

using datetime_detail::readInt;
using datetime_detail::readSeconds;

namespace {

// The field being read.
enum State { kYear, kMonth, kDay, kHour, kMinute, kSecond, kZoneHours, kZoneMinutes };

[[noreturn]] void fail(const QString& text) { throw QStringLiteral("Could not parse time value ") + text; }

}  // namespace

void operator>>(const QString& text, DateTime& value) {
    if (text.isNull()) return;
    QVarLengthArray<wchar_t, 64> field;
    int state = kYear;
    auto readIntField = [&](int& out) {
        if (!readInt(field.constData(), int(field.size()), out)) fail(text);
    };
    auto readSecondField = [&] {
        std::int64_t s = 0;
        if (field.size() < 2 || !readSeconds(field.constData(), int(field.size()), s)) fail(text);
        value.second = static_cast<std::uint8_t>(s);
    };

    const QChar* chars = text.constData();
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = chars[i];
        if (c.isSpace()) continue;
        const char16_t u = c.unicode();
        int v = 0;
        if (u == u'-' && !field.isEmpty()) {
            if (state == kSecond) {
                readSecondField();
                state = kZoneHours;
                field.clear();
                field.append(L'-');  // the sign of the zone's hours
                continue;
            }
            if (field.size() < 2) fail(text);
            readIntField(v);
            if (state == kYear) {
                value.year = v;
                state = kMonth;
            } else if (state == kMonth) {
                value.month = static_cast<std::uint8_t>(v);
                state = kDay;
            } else {
                fail(text);
            }
            field.clear();
        } else if (u == u'+' && !field.isEmpty()) {
            if (state != kSecond) fail(text);
            readSecondField();
            state = kZoneHours;
            field.clear();
        } else if (u == u':') {
            if (field.size() != 2) fail(text);
            readIntField(v);
            if (state == kHour) {
                value.hour = static_cast<std::uint8_t>(v);
                state = kMinute;
            } else if (state == kMinute) {
                value.minute = static_cast<std::uint8_t>(v);
                state = kSecond;
            } else if (state == kZoneHours) {
                value.tzHours = static_cast<std::int8_t>(v);
                state = kZoneMinutes;
            } else {
                fail(text);
            }
            field.clear();
        } else if (u == u'T') {
            if (state != kDay || field.size() != 2) fail(text);
            readIntField(v);
            value.day = static_cast<std::uint8_t>(v);
            state = kHour;
            field.clear();
        } else if (u == u'Z') {
            // Whatever follows the Z is not looked at.
            if (state != kSecond) fail(text);
            readSecondField();
            value.tzHours = 0;
            value.tzMinutes = 0;
            return;
        } else {
            field.append(static_cast<wchar_t>(u));
        }
    }

    int v = 0;
    switch (state) {
    case kYear:
        if (field.size() < 4) fail(text);
        readIntField(v);
        value.year = v;
        break;
    case kMonth:
        if (field.size() != 2) fail(text);
        readIntField(v);
        value.month = static_cast<std::uint8_t>(v);
        break;
    case kDay:
        if (field.size() != 2) fail(text);
        readIntField(v);
        value.day = static_cast<std::uint8_t>(v);
        break;
    case kSecond:
        // No zone: the time is taken as UTC.
        readSecondField();
        value.tzHours = 0;
        value.tzMinutes = 0;
        break;
    case kZoneMinutes:
        if (field.size() != 2) fail(text);
        readIntField(v);
        value.tzMinutes = static_cast<std::int8_t>(value.tzHours < 0 ? -v : v);
        break;
    default:
        fail(text);
    }
}

QString DateTime::toString() const {
    // The longest text is 11 + 15 + 6 characters; the buffer is the size it always was.
    char buffer[256];
    const int length = datetime_detail::formatDateTime(*this, buffer);
    return QString::fromLatin1(buffer, length);
}

QTextStream& operator>>(QTextStream& stream, DateTime& value) {
    stream.readAll() >> value;
    return stream;
}

QTextStream& operator<<(QTextStream& stream, const DateTime& value) {
    stream << value.toString();
    return stream;
}

Utf8OStream& operator<<(Utf8OStream& stream, const DateTime& value) {
    return stream << value.toString();
}

QTextStream& operator>>(QTextStream& stream, QDateTime& value) {
    value = QDateTime::fromString(stream.readAll(), Qt::TextDate);
    return stream;
}

QTextStream& operator<<(QTextStream& stream, const QDateTime& value) {
    stream << value.toString(Qt::TextDate);
    return stream;
}

double convertToDouble(double value) { return value; }
double convertToDouble(const QString&) { return 0.0; }
double convertToDouble(const QDateTime&) { return 0.0; }
double convertFromDouble(double, double value) { return value; }
void convertFromDouble(QDateTime&, double) {}
void convertFromDouble(QString&, double) {}

}  // namespace mirel
