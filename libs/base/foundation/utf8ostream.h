// Utf8OStream: a growable byte buffer that QString text is appended to as UTF-8, the sink
// of the library's text-file writers.
//
// The encoding works one UTF-16 unit at a time and is kept that way on purpose: a
// surrogate is written as its own three-byte sequence, so a character above U+FFFF takes
// six bytes, not the four of standard UTF-8 (the form sometimes called CESU-8). Text is
// encoded up to its first 0 unit. One writer at a time.
#pragma once

#include <QString>

#include "base/memory/memoryobject.h"
#include "base/mirel_export.h"

namespace mirel {

class MIREL_EXPORT Utf8OStream : public MemoryObject {
public:
    // An empty stream; no memory is taken until the first append.
    Utf8OStream() = default;
    ~Utf8OStream();

    // Appends `s` as UTF-8, growing the buffer by doubling. If the buffer cannot grow
    // (no memory, or more than 2 GiB in all) the text is not appended and good() turns
    // false for good.
    Utf8OStream& operator<<(const QString& s);

    // The bytes written so far, not zero-terminated; null before the first append.
    const char* data() const { return mData; }
    int length() const { return mLength; }
    int capacity() const { return mCapacity; }
    // False once an append has been dropped.
    bool good() const { return mGood; }

    Utf8OStream(const Utf8OStream&) = delete;
    Utf8OStream& operator=(const Utf8OStream&) = delete;

private:
    bool reserveFor(long long total);

    char* mData = nullptr;  // from Malloc()
    int mLength = 0;
    int mCapacity = 0;
    bool mGood = true;
};

}  // namespace mirel
