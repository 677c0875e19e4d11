// StatusCode: the 32-bit status word every fallible operation of the library returns.
//
//   bits 31-30  severity   0 no error, 1 info, 2 warning, 3 error
//   bits 29-16  subsystem  the registered subsystem's number
//   bits 15-0   code       private to that subsystem
//
// 0 is success. Error words of the library's own subsystem (number 0) are 0xC000nnnn.
// The texts of a word (severity, subsystem name, message) come from statussubsys.h.
#pragma once

#include <cstdint>

namespace mirel {

using StatusCode = std::uint32_t;

constexpr unsigned statusSeverity(StatusCode status) { return status >> 30; }
constexpr unsigned statusSubsystem(StatusCode status) { return (status >> 16) & 0x3fff; }
constexpr unsigned statusCode(StatusCode status) { return status & 0xffff; }

// The four severities, as found in bits 31-30.
enum StatusSeverity : unsigned {
    kSeverityNoError = 0,
    kSeverityInfo = 1,
    kSeverityWarning = 2,
    kSeverityError = 3,
};

// Packs a word; fields wider than their bits are cut to them.
constexpr StatusCode makeStatusCode(unsigned severity, unsigned subsystem, unsigned code) {
    return ((severity & 3u) << 30) | ((subsystem & 0x3fffu) << 16) | (code & 0xffffu);
}

// The words of the library's own subsystem, "APP", number 0.
namespace status {
constexpr StatusCode kInvalidArgument = 0xC0000000;
constexpr StatusCode kObjectAlreadyActive = 0xC0000001;
constexpr StatusCode kCacheNodeNotValid = 0xC0000002;
constexpr StatusCode kNoReferenceHeld = 0xC0000003;
constexpr StatusCode kDecodeFailed = 0xC0000004;
constexpr StatusCode kNoMoreMemory = 0xC0000005;
constexpr StatusCode kFileNotFound = 0xC0000006;
constexpr StatusCode kFileOpenFailed = 0xC0000007;
constexpr StatusCode kIOFailed = 0xC0000008;
constexpr StatusCode kNoSocketsAvailable = 0xC0000009;
constexpr StatusCode kHostnameNotValid = 0xC000000A;
constexpr StatusCode kConnectFailed = 0xC000000B;
constexpr StatusCode kSocketNotConnected = 0xC000000C;
constexpr StatusCode kSocketReceiveTimedOut = 0xC000000D;
constexpr StatusCode kReceivedInvalidResponse = 0xC000000E;
constexpr StatusCode kTextureAlreadyDefined = 0xC000000F;
constexpr StatusCode kObjectAlreadyExists = 0xC0000010;
constexpr StatusCode kEntryIsDefunct = 0xC0000011;
constexpr StatusCode kNotImplemented = 0xC0000012;
constexpr StatusCode kUrlNotFound = 0xC0000013;
constexpr StatusCode kUrlNotValid = 0xC0000014;
constexpr StatusCode kReadPastEndOfFile = 0xC0000016;
constexpr StatusCode kActionInProgress = 0x40000080;
constexpr StatusCode kActionAlreadyQueued = 0x40000081;
}  // namespace status

}  // namespace mirel
