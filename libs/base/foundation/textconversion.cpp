// The text conversions: unit arithmetic written straight into the destination's storage.
#include "base/foundation/textconversion.h"

#include <cctype>
#include <cstdint>
#include <cwchar>

namespace mirel {

static_assert(sizeof(wchar_t) == 4, "wide strings are UTF-32 on this platform");

QString toQString(const wchar_t* s) {
    if (s == nullptr) return QString();
    return toQString(s, static_cast<int>(std::wcslen(s)));
}

QString toQString(const wchar_t* s, int length) {
    if (s == nullptr || length < 0) return QString();
    // Sized for the worst case, every character a pair, then cut to what was written.
    QString result(qsizetype{length} * 2, Qt::Uninitialized);
    char16_t* out = reinterpret_cast<char16_t*>(result.data());
    char16_t* const begin = out;
    for (int i = 0; i < length; ++i) {
        // Unsigned, so that a negative wchar_t (above 0x7FFFFFFF) is split like any other
        // large value rather than taken for a small one.
        const std::uint32_t c = static_cast<std::uint32_t>(s[i]);
        if (c > 0xFFFF) {
            *out++ = static_cast<char16_t>(((c - 0x10000) >> 10) + 0xD800);
            *out++ = static_cast<char16_t>(((c - 0x10000) & 0x3FF) | 0xDC00);
        } else {
            *out++ = static_cast<char16_t>(c);
        }
    }
    result.truncate(out - begin);
    return result;
}

QString toQString(const std::wstring& s) {
    return toQString(s.data(), static_cast<int>(s.size()));
}

std::wstring toWString(const QString& s) {
    const qsizetype n = s.size();
    // Sized to the unit count and never shortened: the zeros left by combined pairs stay.
    std::wstring result(static_cast<std::size_t>(n), L'\0');
    const char16_t* in = reinterpret_cast<const char16_t*>(s.utf16());
    wchar_t* out = result.data();
    for (qsizetype i = 0; i < n; ++i) {
        const std::uint32_t u = in[i];
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < n && in[i + 1] >= 0xDC00 &&
            in[i + 1] <= 0xDFFF) {
            // hi * 1024 + lo - 0x35FDC00 is ((hi - 0xD800) << 10) + (lo - 0xDC00) + 0x10000.
            *out++ = static_cast<wchar_t>(u * 1024 + in[i + 1] - 0x35FDC00);
            ++i;
        } else {
            *out++ = static_cast<wchar_t>(u);
        }
    }
    return result;
}

std::wstring toWString(const unsigned short* s) {
    std::wstring result;
    if (s == nullptr) return result;
    std::size_t n = 0;
    while (s[n] != 0) ++n;
    result.resize(n);
    for (std::size_t i = 0; i < n; ++i) result[i] = static_cast<wchar_t>(s[i]);
    return result;
}

namespace {

struct PercentTable {
    char entry[256][4];
    constexpr PercentTable() : entry() {
        constexpr char digits[] = "0123456789abcdef";
        for (int b = 0; b < 256; ++b) {
            entry[b][0] = '%';
            entry[b][1] = digits[b >> 4];
            entry[b][2] = digits[b & 15];
            entry[b][3] = '\0';
        }
    }
};

constexpr PercentTable kPercent;

}  // namespace

const char* hexEncode(char c) { return kPercent.entry[static_cast<unsigned char>(c)]; }

namespace {

// std::tolower is defined only for EOF and values of unsigned char; anything wider is left
// as it is, which is what folding "only the characters it knows" means for wide text.
inline std::uint32_t foldCase(wchar_t c) {
    const std::uint32_t u = static_cast<std::uint32_t>(c);
    return u <= 0xFF ? static_cast<std::uint32_t>(std::tolower(static_cast<int>(u))) : u;
}

}  // namespace

int wcsicmp(const wchar_t* a, const wchar_t* b) {
    for (;; ++a, ++b) {
        if (*a == 0) return *b == 0 ? 0 : -1;
        if (*b == 0) return 1;
        const std::uint32_t ca = foldCase(*a);
        const std::uint32_t cb = foldCase(*b);
        if (ca != cb) return ca < cb ? -1 : 1;
    }
}

}  // namespace mirel
