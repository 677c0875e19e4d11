// UTF-8 output into a doubling buffer. Eight units are encoded at a time in vector lanes
// where the processor has them (always on x86-64); the unit-by-unit code is the reference
// and handles the ends of texts and buffers.
#include "base/foundation/utf8ostream.h"

#include <climits>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mirel {

namespace {

// The first buffer of a stream; doubling starts from here.
constexpr long long kFirstCapacity = 64;

inline int utf8Bytes(char16_t u) { return u <= 0x7F ? 1 : u <= 0x7FF ? 2 : 3; }

#if defined(__SSE2__)
inline __m128i load8(const char16_t* in) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
}
inline unsigned zeroUnits(__m128i v) {
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(v, _mm_setzero_si128())));
}

// Bytes of each of eight units in its lane: 3, less one for ASCII, less one for anything up
// to 0x7FF (the comparison masks are -1).
inline __m128i laneLengths(__m128i v) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i ascii = _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xFF80))), zero);
    const __m128i upToTwo = _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xF800))), zero);
    return _mm_add_epi16(_mm_set1_epi16(3), _mm_add_epi16(ascii, upToTwo));
}

inline long long sumLanes(__m128i sums) {
    alignas(16) std::uint16_t lanes[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), sums);
    long long total = 0;
    for (std::uint16_t lane : lanes) total += lane;
    return total;
}
#endif

// Bytes for the units of `in` up to the first 0 unit (or `n`); `end` receives where the
// text stops.
inline long long encodedLength(const char16_t* in, qsizetype n, qsizetype& end) {
    long long bytes = 0;
    qsizetype i = 0;
#if defined(__SSE2__)
    // Lanes add at most 3 a block, so they are emptied well before they could overflow.
    constexpr int kBlocksPerSum = 8192;
    __m128i sums = _mm_setzero_si128();
    int blocks = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128i v = load8(in + i);
        if (zeroUnits(v) != 0) break;  // the end is in here: finish unit by unit
        sums = _mm_add_epi16(sums, laneLengths(v));
        if (++blocks == kBlocksPerSum) {
            bytes += sumLanes(sums);
            sums = _mm_setzero_si128();
            blocks = 0;
        }
    }
    bytes += sumLanes(sums);
#endif
    for (; i < n && in[i] != 0; ++i) bytes += utf8Bytes(in[i]);
    end = i;
    return bytes;
}

// One unit's bytes in the low bytes of a word, for a single unaligned store.
inline std::uint32_t packed(std::uint32_t u) {
    const std::uint32_t two = (0xC0 | (u >> 6)) | (0x80 | (u & 0x3F)) << 8;
    // Surrogates too: each half on its own, never joined into a four-byte form.
    const std::uint32_t three =
        (0xE0 | (u >> 12)) | (0x80 | ((u >> 6) & 0x3F)) << 8 | (0x80 | (u & 0x3F)) << 16;
    return u <= 0x7F ? u : u <= 0x7FF ? two : three;
}

// Encodes one unit, storing a whole word when `room` allows; returns the new end.
inline char* encodeOne(std::uint32_t u, char* out, std::ptrdiff_t room) {
    const std::uint32_t word = packed(u);
    const int length = 1 + (u > 0x7F) + (u > 0x7FF);
    if (room >= 4) {
        std::memcpy(out, &word, 4);
    } else {
        for (int k = 0; k < length; ++k) out[k] = static_cast<char>(word >> (8 * k));
    }
    return out + length;
}

#if defined(__SSE2__)
// Room a block of eight may touch: 24 bytes of text and the tail of the last word.
constexpr std::ptrdiff_t kBlockRoom = 32;

// Encodes eight units, none of them 0. All ASCII: one packed store. Otherwise each unit's
// bytes and length are worked out side by side in the vector lanes and then laid down one
// after the other, with no branch on the kind of unit.
inline char* encodeEight(__m128i v, char* out) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i ascii = _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xFF80))), zero);
    if (_mm_movemask_epi8(ascii) == 0xFFFF) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(v, v));
        return out + 8;
    }
    const __m128i upToTwo = _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xF800))), zero);
    const __m128i low6 = _mm_set1_epi16(0x3F);
    const __m128i cont = _mm_set1_epi16(0x80);
    const __m128i lead2 = _mm_or_si128(_mm_srli_epi16(v, 6), _mm_set1_epi16(0xC0));
    const __m128i lead3 = _mm_or_si128(_mm_srli_epi16(v, 12), _mm_set1_epi16(0xE0));
    const __m128i lastCont = _mm_or_si128(_mm_and_si128(v, low6), cont);
    const __m128i midCont = _mm_or_si128(_mm_and_si128(_mm_srli_epi16(v, 6), low6), cont);
    // Byte 0: the unit itself, or a two- or three-byte lead.
    const __m128i multiLead = _mm_or_si128(_mm_and_si128(upToTwo, lead2), _mm_andnot_si128(upToTwo, lead3));
    const __m128i b0 = _mm_or_si128(_mm_and_si128(ascii, v), _mm_andnot_si128(ascii, multiLead));
    // Byte 1: the last continuation of a two-byte form, the middle one of a three-byte form.
    const __m128i b1 = _mm_or_si128(_mm_and_si128(upToTwo, lastCont), _mm_andnot_si128(upToTwo, midCont));
    const __m128i pair = _mm_or_si128(b0, _mm_slli_epi16(b1, 8));
    alignas(16) std::uint32_t words[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(words), _mm_unpacklo_epi16(pair, lastCont));
    _mm_store_si128(reinterpret_cast<__m128i*>(words + 4), _mm_unpackhi_epi16(pair, lastCont));
    alignas(16) std::uint16_t lengths[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(lengths), laneLengths(v));
    for (int k = 0; k < 8; ++k) {
        std::memcpy(out, &words[k], 4);
        out += lengths[k];
    }
    return out;
}
#endif

// Encodes up to `n` units, stopping at the first 0 unit; returns the end of the output.
// `limit` is the end of the buffer: whole blocks and words are stored while there is room
// for them, the last few bytes one by one.
inline char* encode(const char16_t* in, qsizetype n, char* out, const char* limit) {
    qsizetype i = 0;
#if defined(__SSE2__)
    for (; i + 8 <= n && limit - out >= kBlockRoom; i += 8) {
        const __m128i v = load8(in + i);
        if (zeroUnits(v) != 0) break;  // the end is in here: finish unit by unit
        out = encodeEight(v, out);
    }
#endif
    for (; i < n && in[i] != 0; ++i) out = encodeOne(in[i], out, limit - out);
    return out;
}

}  // namespace

Utf8OStream::~Utf8OStream() { Free(mData); }

bool Utf8OStream::reserveFor(long long total) {
    if (total <= mCapacity) return true;
    if (total > INT_MAX) return false;
    long long capacity = mCapacity > 0 ? mCapacity : kFirstCapacity;
    while (capacity < total) capacity *= 2;
    if (capacity > INT_MAX) capacity = INT_MAX;
    char* block = static_cast<char*>(Malloc(static_cast<unsigned long>(capacity), nullptr));
    if (block == nullptr) return false;
    if (mLength > 0) std::memcpy(block, mData, static_cast<std::size_t>(mLength));
    Free(mData);
    mData = block;
    mCapacity = static_cast<int>(capacity);
    return true;
}

Utf8OStream& Utf8OStream::operator<<(const QString& s) {
    if (s.isEmpty() || !mGood) return *this;
    const char16_t* in = reinterpret_cast<const char16_t*>(s.utf16());
    qsizetype n = s.size();
    // The common case needs no counting pass: room for three bytes a unit is already there.
    if (mLength + 3LL * n > mCapacity) {
        const long long bytes = encodedLength(in, n, n);
        if (!reserveFor(mLength + bytes)) {
            mGood = false;
            return *this;
        }
    }
    char* end = encode(in, n, mData + mLength, mData + mCapacity);
    mLength = static_cast<int>(end - mData);
    return *this;
}

}  // namespace mirel
