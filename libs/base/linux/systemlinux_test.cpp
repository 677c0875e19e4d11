// Platform facts against the kernel's own answers, read here independently, and the fixed
// tables the facts are mapped through.
#include <gtest/gtest.h>

#include <errno.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>

#include "base/linux/linuxutil_p.h"
#include "base/system/system.h"

namespace mirel {
namespace {

// Memory moves while the test runs; figures agree within this many MB.
constexpr int kSlackMB = 256;

TEST(PlatformFacts, VersionIsTheKernelReleaseOfUnameMappedByTheTables) {
    utsname name;
    ASSERT_EQ(uname(&name), 0);
    int expected[4] = {0, 0, 0, 0};
    std::sscanf(name.release, "%d.%d.%d-%d", &expected[0], &expected[1], &expected[2], &expected[3]);
    System::OSVersion os = System::kOSUnknown;
    int v[4] = {-1, -1, -1, -1};
    System::getOSVersion(os, v[0], v[1], v[2], v[3]);
    EXPECT_EQ(os, System::kOSLinux);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(v[i], expected[i]) << name.release;
    EXPECT_EQ(System::getOSVersionString(),
              QString("Linux (%1.%2.%3.%4)").arg(expected[0]).arg(expected[1]).arg(expected[2]).arg(expected[3]));

    struct Release {
        const char* text;
        int numbers[4];
    };
    for (const Release& r : {Release{"6.1.0-18-amd64", {6, 1, 0, 18}}, Release{"6.5.0", {6, 5, 0, 0}},
                             Release{"6.8.0-rc1", {6, 8, 0, 0}}, Release{"3.2a4", {3, 0, 0, 0}},
                             Release{"", {0, 0, 0, 0}}, Release{"99999999999999999999.1", {0x7FFFFFFF, 1, 0, 0}}}) {
        int n[4] = {-1, -1, -1, -1};
        linuxutil::parseKernelRelease(r.text, n);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(n[i], r.numbers[i]) << r.text << " #" << i;
    }
    for (auto [os, name] : {std::pair{0, "UNKNOWN "}, {8, "Microsoft Windows Server , "}, {9, "Mac OS X "},
                            {10, "Linux "}, {11, "UNKNOWN "}, {-1, "UNKNOWN "}}) {
        auto family = static_cast<System::OSVersion>(os);
        EXPECT_EQ(System::getOSName(family), name) << os;
    }
    EXPECT_EQ(linuxutil::formatOSVersionString(10, 6, 1, 0, 18), "Linux (6.1.0.18)");
    EXPECT_EQ(linuxutil::formatOSVersionString(9, 10, 4, 11, 3), "Mac OS X (10.4.11)");
    EXPECT_EQ(linuxutil::formatOSVersionString(7, 5, 1, 0, 2), "Microsoft Windows XP (Service Pack 2)");
}

TEST(PlatformFacts, ProcessorsAndClock) {
    for (auto [family, code] : {std::pair{2u, 3ul}, {3u, 3ul}, {4u, 4ul}, {5u, 5ul}, {6u, 6ul}, {25u, 6ul}}) {
        EXPECT_EQ(linuxutil::processorTypeForFamily(family), code) << family;
    }
#if defined(__x86_64__)
    EXPECT_EQ(System::getProcessorType(), 6u);  // every x86-64 is family 6 or above
#endif
    EXPECT_EQ(System::getNumProcessors(), sysconf(_SC_NPROCESSORS_ONLN));
    double hz = 0;
    std::ifstream maxFreq("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq");
    if (maxFreq >> hz) {
        hz *= 1000;
    } else {
        std::ifstream cpuinfo("/proc/cpuinfo");
        for (std::string line; hz == 0 && std::getline(cpuinfo, line);) {
            if (line.rfind("cpu MHz", 0) == 0) hz = std::atof(line.substr(line.find(':') + 1).c_str()) * 1e6;
        }
    }
    // "cpu MHz" is the current clock, which moves between two reads.
    EXPECT_GE(System::getProcessorClockSpeed(), hz * 0.5);
    EXPECT_LE(System::getProcessorClockSpeed(), hz * 2.0);
    EXPECT_FALSE(System::supportsIntelMMX() || System::supportsIntelSIMD());
}

TEST(PlatformFacts, MemoryFiguresShiftCapAndWrap) {
    EXPECT_EQ(linuxutil::bytesToMB(0xFFFFF), 0);
    EXPECT_EQ(linuxutil::bytesToMB(-1), 0);  // toward zero, not down
    EXPECT_EQ(linuxutil::bytesToMB(-0x180000), -1);
    EXPECT_EQ(linuxutil::cappedMB(-5), 2047);
    EXPECT_EQ(linuxutil::cappedMB(64LL << 30), 2047);
    EXPECT_EQ(linuxutil::cappedMB(0x200000), 2);
    // 6 GiB + 3 MiB in the four counted fields wraps to 2051 MB; a prefix is not a key.
    const QByteArray big = "MemTotal: 99999999 kB\nMemFree: 1048576 kB\nActive(file): 7 kB\n"
                           "Active: 2097152 kB\nInactive: 3145728 kB\nUnevictable: 3072 kB\n";
    EXPECT_EQ(linuxutil::totalMemoryMB(big, 4096), 2051);
    EXPECT_EQ(linuxutil::meminfoKB(big, "Mem"), -1);
    EXPECT_EQ(linuxutil::vmstatValue("pswpin 5\npswpout 42\n", "pswpout"), 42);
}

TEST(PlatformFacts, MemoryFiguresAgreeWithProc) {
    std::map<std::string, long long> m;
    std::ifstream in("/proc/meminfo");
    std::string key, unit;
    for (long long kb; in >> key >> kb && std::getline(in, unit);) m[key.substr(0, key.size() - 1)] = kb;
    int avail = -1, limit = -1, used = -1, paged = -1, total = -1, total4 = -1;
    System::getAvailableMemoryMB(avail, limit);
    System::getUsedMemoryMB(used, paged);
    System::getTotalMemoryMB(total, total4);
    EXPECT_EQ(limit, 2047);
    EXPECT_NEAR(avail, std::min(m["MemAvailable"] * 1024, 0x7FFFFFFFLL) >> 20, kSlackMB);
    EXPECT_NEAR(used, std::min(m["Unevictable"] * 1024, 0x7FFFFFFFLL) >> 20, kSlackMB);
    const long long sum = (m["MemFree"] + m["Active"] + m["Inactive"] + m["Unevictable"]) * 1024;
    const long long d = std::abs(total - ((sum % (1LL << 32)) >> 20)) % 4096;
    EXPECT_LE(std::min(d, 4096 - d), kSlackMB) << total;  // distance on the wrap's circle
    EXPECT_EQ(total4, 4 * total);
}

TEST(PlatformFacts, GuidAndLastError) {
    const GUID a = System::getGUID();
    const GUID b = System::getGUID();
    EXPECT_EQ(std::memcmp(a.data, "mirelGID", 8), 0);
    EXPECT_NE(std::memcmp(a.data + 8, b.data + 8, 8), 0);
    EXPECT_EQ(a.data[8 + 6] >> 4, 4);  // a random UUID's version nibble: its first half
    errno = ENOENT;
    EXPECT_EQ(System::getLastError(), ENOENT);
}

}  // namespace
}  // namespace mirel
