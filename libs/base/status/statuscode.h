// StatusCode: the 32-bit status word every fallible operation of the library returns.
//
//   bits 31-30  severity   0 no error, 1 info, 2 warning, 3 error
//   bits 29-16  subsystem  the registered subsystem's number
//   bits 15-0   code       private to that subsystem
//
// 0 is success. Error words of the library's own subsystem (number 0) are 0xC000nnnn.
#pragma once

#include <cstdint>

namespace mirel {

using StatusCode = std::uint32_t;

constexpr unsigned statusSeverity(StatusCode status) { return status >> 30; }
constexpr unsigned statusSubsystem(StatusCode status) { return (status >> 16) & 0x3fff; }
constexpr unsigned statusCode(StatusCode status) { return status & 0xffff; }

}  // namespace mirel
