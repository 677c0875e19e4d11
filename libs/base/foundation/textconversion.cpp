// The text conversions: unit arithmetic written straight into the destination's storage.
#include "base/foundation/textconversion.h"

#include <cctype>
#include <bit>
#include <cstdint>
#include <cwchar>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

namespace {

// Widens eight units into `out` and returns how many of them, from the first, are not
// surrogates: only those count. Needs room for eight characters.
inline int plainPrefix(const char16_t* in, wchar_t* out) {
#if defined(__SSE2__)
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi16(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), _mm_unpackhi_epi16(v, zero));
    const __m128i halves = _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xF800))),
                                           _mm_set1_epi16(static_cast<short>(0xD800)));
    const unsigned stops = static_cast<unsigned>(_mm_movemask_epi8(halves));
    return stops == 0 ? 8 : std::countr_zero(stops) / 2;
#else
    int k = 0;
    while (k < 8 && (in[k] & 0xF800) != 0xD800) {
        out[k] = static_cast<wchar_t>(in[k]);
        ++k;
    }
    return k;
#endif
}

// Converts units from `i` until at least `stop` (a pair may take one more, a run of plain
// units up to seven more) into `out`, which needs room for stop - i + 8 characters;
// returns the end of the output and leaves `i` where it stopped.
inline wchar_t* widen(const char16_t* in, qsizetype& i, qsizetype stop, qsizetype n, wchar_t* out) {
    while (i < stop) {
        if (i + 8 <= n) {
            const int k = plainPrefix(in + i, out);
            out += k;
            i += k;
            if (k == 8) continue;
        }
        const std::uint32_t u = in[i];
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < n && in[i + 1] >= 0xDC00 && in[i + 1] <= 0xDFFF) {
            // hi * 1024 + lo - 0x35FDC00 is ((hi - 0xD800) << 10) + (lo - 0xDC00) + 0x10000.
            *out++ = static_cast<wchar_t>(u * 1024 + in[i + 1] - 0x35FDC00);
            i += 2;
        } else {
            *out++ = static_cast<wchar_t>(u);
            ++i;
        }
    }
    return out;
}

}  // namespace

std::wstring toWString(const QString& s) {
    const qsizetype n = s.size();
    const char16_t* in = reinterpret_cast<const char16_t*>(s.utf16());
    std::wstring result;
    result.reserve(static_cast<std::size_t>(n));
    // Through a small buffer rather than into a zero-filled string: the result is written
    // once instead of twice.
    constexpr qsizetype kChunk = 512;
    wchar_t chunk[kChunk + 16];
    qsizetype i = 0;
    while (i < n) {
        const qsizetype stop = n - i > kChunk ? i + kChunk : n;
        const wchar_t* end = widen(in, i, stop, n, chunk);
        result.append(chunk, static_cast<std::size_t>(end - chunk));
    }
    // Never shortened: the zeros left by combined pairs stay, so the size is the unit count.
    result.resize(static_cast<std::size_t>(n), L'\0');
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
