// Helpers of the Linux platform layer: the pure pieces of its queries (parsing kernel
// texts, mapping numbers onto the library's codes), the checks every path takes on its way
// to the system, and the two services the lower layers need from the OS (a sleep and the
// processor count) so that they never reach up into System for them. The exported ones
// are exported only so that tests can drive them with made-up inputs.
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>

#include "base/mirel_export.h"

namespace mirel::linuxutil {

// Sleeps `ms` milliseconds with nanosleep(); -1 sleeps for ever (0x7FFFFFFF seconds), other
// negative values fail at once. 0 or the platform's error return, as nanosleep() gives it.
int sleepMilliseconds(int ms);
// Processors currently online.
int onlineProcessors();

// The leading numbers of a kernel release, separated by "." or "-", up to four; the rest
// stay 0. "6.1.0-18-amd64" gives 6 1 0 18; "6.8.0-rc1" gives 6 8 0 0.
MIREL_EXPORT void parseKernelRelease(const char* release, int numbers[4]);

// The display name of an OS family (System::OSVersion); "UNKNOWN " outside the table.
MIREL_EXPORT QString osDisplayName(std::int32_t os);
// The version text for any family: "(a.b.c)" for Mac OS X (9), "(a.b.c.d)" for Linux (10),
// "(Service Pack d)" for all others, after the family's display name.
MIREL_EXPORT QString formatOSVersionString(std::int32_t os, int major, int minor, int bugfix,
                                           int build);

// The processor code for an x86 CPUID family: 3, 4, 5 as they are, 6 for 6 and above, 3
// for anything below 3.
MIREL_EXPORT unsigned long processorTypeForFamily(unsigned family);

// A byte count in MB by an arithmetic shift that rounds toward zero.
MIREL_EXPORT int bytesToMB(std::int32_t bytes);
// Bytes capped at 0x7FFFFFFF, then in MB; negative counts are taken as the cap.
MIREL_EXPORT int cappedMB(long long bytes);

// getTotalMemoryMB()'s figure from a /proc/meminfo text: free + active + inactive +
// unevictable bytes, whole pages of `pageSize`, the byte count taken in 32 bits, in MB.
MIREL_EXPORT int totalMemoryMB(const QByteArray& meminfo, long pageSize);

// The value in kB of `key` ("MemFree") in a /proc/meminfo text; -1 when absent.
MIREL_EXPORT long long meminfoKB(const QByteArray& meminfo, const char* key);
// The value of `key` ("pswpout") in a /proc/vmstat text; -1 when absent.
MIREL_EXPORT long long vmstatValue(const QByteArray& vmstat, const char* key);

// The UTF-8 form of `path` for the system, or false when it cannot name the same file
// there: an embedded NUL would cut it short, an unpaired surrogate would be replaced.
MIREL_EXPORT bool systemPath(const QString& path, QByteArray& out);

// A whole small file of /proc or /sys; empty when unreadable.
QByteArray readProcFile(const char* path);

}  // namespace mirel::linuxutil
