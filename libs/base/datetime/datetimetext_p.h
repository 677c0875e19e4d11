// The field readers and the formatter behind the text forms, visible to their tests.
#pragma once

#include <cstdint>

#include "base/datetime/datetime.h"

namespace mirel::datetime_detail {

// swscanf(field, L"%d") on the first `length` characters: false when it converts nothing.
MIREL_EXPORT bool readInt(const wchar_t* text, int length, int& value);
// swscanf(field, L"%lf"), truncated toward zero, saturated to 32 bits, NaN as 0.
MIREL_EXPORT bool readSeconds(const wchar_t* text, int length, std::int64_t& value);
// Writes toString()'s text to `out` (at least 64 bytes), not terminated; returns its length.
MIREL_EXPORT int formatDateTime(const DateTime& value, char* out);

}  // namespace mirel::datetime_detail
