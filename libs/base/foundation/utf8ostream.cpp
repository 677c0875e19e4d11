// UTF-8 output, unit by unit, into a doubling buffer.
#include "base/foundation/utf8ostream.h"

#include <climits>
#include <cstdint>
#include <cstring>

namespace mirel {

namespace {

// The first buffer of a stream; doubling starts from here.
constexpr long long kFirstCapacity = 64;

// Bytes for the units of `in` up to the first 0 unit (or `n`); `end` receives where the
// text stops.
inline long long encodedLength(const char16_t* in, qsizetype n, qsizetype& end) {
    long long bytes = 0;
    qsizetype i = 0;
    for (; i < n; ++i) {
        const char16_t u = in[i];
        if (u == 0) break;
        bytes += u <= 0x7F ? 1 : u <= 0x7FF ? 2 : 3;
    }
    end = i;
    return bytes;
}

// Eight units at once when all are ASCII and none is 0, the usual case for file text.
inline bool eightAscii(const char16_t* in) {
    std::uint64_t a, b;
    std::memcpy(&a, in, 8);
    std::memcpy(&b, in + 4, 8);
    constexpr std::uint64_t kHigh = 0xFF80FF80FF80FF80ull;
    constexpr std::uint64_t kOnes = 0x0001000100010001ull;
    constexpr std::uint64_t kSign = 0x8000800080008000ull;
    // With every unit below 0x80, a unit is 0 exactly when subtracting 1 borrows into its
    // top bit.
    const std::uint64_t zeros = ((a - kOnes) | (b - kOnes)) & kSign;
    return ((a | b) & kHigh) == 0 && zeros == 0;
}

// Encodes up to `n` units, stopping at the first 0 unit; returns the end of the output.
inline char* encode(const char16_t* in, qsizetype n, char* out) {
    qsizetype i = 0;
    while (i < n) {
        if (i + 8 <= n && eightAscii(in + i)) {
            for (int k = 0; k < 8; ++k) out[k] = static_cast<char>(in[i + k]);
            out += 8;
            i += 8;
            continue;
        }
        const char16_t u = in[i++];
        if (u == 0) break;
        if (u <= 0x7F) {
            *out++ = static_cast<char>(u);
        } else if (u <= 0x7FF) {
            *out++ = static_cast<char>(0xC0 | (u >> 6));
            *out++ = static_cast<char>(0x80 | (u & 0x3F));
        } else {
            // Surrogates too: each half on its own, never joined into a four-byte form.
            *out++ = static_cast<char>(0xE0 | (u >> 12));
            *out++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
            *out++ = static_cast<char>(0x80 | (u & 0x3F));
        }
    }
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
    char* end = encode(in, n, mData + mLength);
    mLength = static_cast<int>(end - mData);
    return *this;
}

}  // namespace mirel
