// The input's bytes, taken as 16-bit units, go through the wide-string conversions; the
// result must agree with a one-unit-at-a-time decoder, and a text without stray
// surrogates must come back unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "base/foundation/textconversion.h"

namespace {

bool isHigh(char16_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool isLow(char16_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

void require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<char16_t> units(size / 2);
    if (!units.empty()) std::memcpy(units.data(), data, units.size() * 2);
    // Not fromUtf16(): it would take a leading 0xFFFE for a byte-order mark and swap.
    const QString text(reinterpret_cast<const QChar*>(units.data()),
                       static_cast<qsizetype>(units.size()));

    std::wstring expected;
    bool stray = false;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (isHigh(units[i]) && i + 1 < units.size() && isLow(units[i + 1])) {
            expected += static_cast<wchar_t>(0x10000 + ((units[i] - 0xD800) << 10) +
                                             (units[i + 1] - 0xDC00));
            ++i;
        } else {
            stray = stray || isHigh(units[i]) || isLow(units[i]);
            expected += static_cast<wchar_t>(units[i]);
        }
    }

    const std::wstring wide = mirel::toWString(text);
    require(wide.size() == units.size());
    require(wide.compare(0, expected.size(), expected) == 0);
    for (std::size_t i = expected.size(); i < wide.size(); ++i) require(wide[i] == 0);

    if (!stray) {
        const QString back = mirel::toQString(expected);
        require(back == text);
    }
    return 0;
}
