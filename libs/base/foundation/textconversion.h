// Conversions between the library's text types: QString (UTF-16 units), wide strings
// (wchar_t is 32 bits on Linux, so UTF-32) as raw pointers or std::wstring, and 16-bit
// unit arrays; a byte-wise percent encoder and a case-insensitive wide comparison.
//
// The conversions are plain unit arithmetic, not validating codecs: surrogates and values
// above U+10FFFF pass through by formula and nothing is ever replaced. All functions are
// reentrant and keep no state.
#pragma once

#include <QString>

#include <string>

#include "base/mirel_export.h"

namespace mirel {

// UTF-32 to UTF-16: code points above 0xFFFF become a surrogate pair (values above
// 0x10FFFF are split by the same formula), all others one unit. A null pointer gives the
// null QString; an empty text an empty, non-null one.
MIREL_EXPORT QString toQString(const wchar_t* s);
// The first `length` characters of `s`, zeros included. Null `s` or a negative length
// gives the null QString.
MIREL_EXPORT QString toQString(const wchar_t* s, int length);
MIREL_EXPORT QString toQString(const std::wstring& s);

// UTF-16 to UTF-32: a high surrogate followed by a low one makes one character; any other
// unit, unpaired surrogates included, is copied as it is. The result keeps the string's
// length in units, so each pair combined leaves one 0 character at the end: use wcslen()
// on the data where the exact length matters.
MIREL_EXPORT std::wstring toWString(const QString& s);
// Each 16-bit unit up to the first 0 unit becomes one wide character, with no surrogate
// pairing. A null pointer gives an empty string.
MIREL_EXPORT std::wstring toWString(const unsigned short* s);

// "%xx" for the byte value of `c`, two lower-case hexadecimal digits; every byte is
// escaped, letters and digits included. The text is static and never freed.
MIREL_EXPORT const char* hexEncode(char c);

// Compares two zero-terminated wide strings ignoring case as the C library's byte-wise
// tolower() folds it (other characters compare as they are): -1, 0 or 1. A string that
// is a prefix of the other is the smaller.
MIREL_EXPORT int wcsicmp(const wchar_t* a, const wchar_t* b);

}  // namespace mirel
