// Platform facts against the kernel's own answers, read here independently, and the fixed
// tables the facts are mapped through.
#include <gtest/gtest.h>

#include <errno.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "base/linux/linuxutil_p.h"
#include "base/system/system.h"

namespace mirel {
namespace {

// /proc/meminfo as a map of kB values, parsed with the standard library only.
std::map<std::string, long long> meminfo() {
    std::map<std::string, long long> values;
    std::ifstream in("/proc/meminfo");
    std::string key;
    long long value;
    std::string unit;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        if (fields >> key >> value) values[key.substr(0, key.size() - 1)] = value;
    }
    return values;
}

// Memory moves while the test runs; figures agree within this many MB.
constexpr int kSlackMB = 256;

// Operating system ------------------------------------------------------------------------

TEST(PlatformFacts, VersionIsTheKernelReleaseOfUname) {
    utsname name;
    ASSERT_EQ(uname(&name), 0);
    // The release's numbers, read with strtol as a cross-check of the library's parser.
    int expected[4] = {0, 0, 0, 0};
    const char* p = name.release;
    for (int i = 0; i < 4 && *p >= '0' && *p <= '9'; ++i) {
        char* end = nullptr;
        const long v = std::strtol(p, &end, 10);
        if (*end != '\0' && *end != '.' && *end != '-') break;
        expected[i] = static_cast<int>(v);
        if (*end == '\0') break;
        p = end + 1;
    }
    System::OSVersion os = System::kOSUnknown;
    int major = -1, minor = -1, bugfix = -1, build = -1;
    System::getOSVersion(os, major, minor, bugfix, build);
    EXPECT_EQ(os, System::kOSLinux);
    EXPECT_EQ(System::getOSVersion(), System::kOSLinux);
    EXPECT_EQ(major, expected[0]) << name.release;
    EXPECT_EQ(minor, expected[1]) << name.release;
    EXPECT_EQ(bugfix, expected[2]) << name.release;
    EXPECT_EQ(build, expected[3]) << name.release;
    EXPECT_EQ(System::getOSVersionString().toStdString(),
              "Linux (" + std::to_string(expected[0]) + "." + std::to_string(expected[1]) + "." +
                  std::to_string(expected[2]) + "." + std::to_string(expected[3]) + ")");
}

TEST(PlatformFacts, KernelReleasesParse) {
    struct Row {
        const char* release;
        int numbers[4];
    };
    const Row rows[] = {
        {"6.1.0-18-amd64", {6, 1, 0, 18}},
        {"5.15.0-91-generic", {5, 15, 0, 91}},
        {"6.5.0", {6, 5, 0, 0}},
        {"6.8.0-rc1", {6, 8, 0, 0}},
        {"4.19.0+", {4, 19, 0, 0}},
        {"3.2a4", {3, 0, 0, 0}},
        {"5.15.146.1-microsoft-standard-WSL2", {5, 15, 146, 1}},
        {"", {0, 0, 0, 0}},
        {"x", {0, 0, 0, 0}},
        {"99999999999999999999.1", {0x7FFFFFFF, 1, 0, 0}},
    };
    for (const Row& row : rows) {
        int n[4] = {-1, -1, -1, -1};
        linuxutil::parseKernelRelease(row.release, n);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(n[i], row.numbers[i]) << row.release << " #" << i;
    }
}

TEST(PlatformFacts, NamesAndVersionTextsFollowTheTable) {
    const char* const names[] = {"UNKNOWN ",
                                 "Microsoft Win32s ",
                                 "Microsoft Windows 95 ",
                                 "Windows 98 ",
                                 "Windows ME ",
                                 "Microsoft Windows NT ",
                                 "Microsoft Windows 2000 ",
                                 "Microsoft Windows XP ",
                                 "Microsoft Windows Server , ",
                                 "Mac OS X ",
                                 "Linux "};
    for (int i = 0; i <= 10; ++i) {
        auto os = static_cast<System::OSVersion>(i);
        EXPECT_EQ(System::getOSName(os), QString::fromLatin1(names[i])) << i;
    }
    for (int outside : {11, -1, 0x7FFFFFFF}) {
        auto os = static_cast<System::OSVersion>(outside);
        EXPECT_EQ(System::getOSName(os), "UNKNOWN ") << outside;
    }
    EXPECT_EQ(linuxutil::formatOSVersionString(System::kOSMacOSX, 10, 4, 11, 3), "Mac OS X (10.4.11)");
    EXPECT_EQ(linuxutil::formatOSVersionString(System::kOSLinux, 6, 1, 0, 18), "Linux (6.1.0.18)");
    EXPECT_EQ(linuxutil::formatOSVersionString(System::kOSWinXP, 5, 1, 0, 2),
              "Microsoft Windows XP (Service Pack 2)");
    EXPECT_EQ(linuxutil::formatOSVersionString(System::kOSUnknown, 0, 0, 0, 0),
              "UNKNOWN (Service Pack 0)");
}

// Processor -----------------------------------------------------------------------------------

TEST(PlatformFacts, ProcessorTypeCountAndClock) {
    struct Row {
        unsigned family;
        unsigned long code;
    };
    for (Row row : {Row{0, 3}, Row{2, 3}, Row{3, 3}, Row{4, 4}, Row{5, 5}, Row{6, 6}, Row{15, 6},
                    Row{0x19 + 0xF, 6}}) {
        EXPECT_EQ(linuxutil::processorTypeForFamily(row.family), row.code) << row.family;
    }
#if defined(__x86_64__) || defined(__i386__)
    // Every x86-64 processor is family 6 or above (15 with an extended family).
    EXPECT_EQ(System::getProcessorType(), 6u);
#endif
    EXPECT_EQ(System::getNumProcessors(), sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_GE(System::getNumProcessors(), 1);

    // The same sources in the same order, read with the standard library.
    double expectedHz = 0;
    std::ifstream maxFreq("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq");
    double kHz = 0;
    if (maxFreq >> kHz && kHz > 0) {
        expectedHz = kHz * 1000.0;
    } else {
        std::ifstream cpuinfo("/proc/cpuinfo");
        std::string line;
        while (std::getline(cpuinfo, line)) {
            if (line.rfind("cpu MHz", 0) != 0) continue;
            expectedHz = std::atof(line.substr(line.find(':') + 1).c_str()) * 1e6;
            break;
        }
    }
    const float hz = System::getProcessorClockSpeed();
    if (expectedHz == 0) {
        EXPECT_EQ(hz, 0.0f);
    } else {
        // "cpu MHz" is the current clock, which moves between two reads.
        EXPECT_GT(hz, expectedHz * 0.5);
        EXPECT_LT(hz, expectedHz * 2.0);
    }
    EXPECT_FALSE(System::supportsIntelMMX());
    EXPECT_FALSE(System::supportsIntelSIMD());
}

// Memory ---------------------------------------------------------------------------------------

TEST(PlatformFacts, MegabytesShiftTowardZeroAndCap) {
    EXPECT_EQ(linuxutil::bytesToMB(0), 0);
    EXPECT_EQ(linuxutil::bytesToMB(0xFFFFF), 0);
    EXPECT_EQ(linuxutil::bytesToMB(0x100000), 1);
    EXPECT_EQ(linuxutil::bytesToMB(0x7FFFFFFF), 2047);
    EXPECT_EQ(linuxutil::bytesToMB(-1), 0);
    EXPECT_EQ(linuxutil::bytesToMB(-0x100000), -1);
    EXPECT_EQ(linuxutil::bytesToMB(-0x180000), -1);
    EXPECT_EQ(linuxutil::cappedMB(-5), 2047);
    EXPECT_EQ(linuxutil::cappedMB(0x80000000LL), 2047);
    EXPECT_EQ(linuxutil::cappedMB(0x200000), 2);
    EXPECT_EQ(linuxutil::cappedMB(64LL << 30), 2047);
}

TEST(PlatformFacts, KernelTablesParse) {
    const QByteArray meminfo = "MemTotal:       16314488 kB\nMemFree:          123 kB\n"
                               "Active(anon):     9 kB\nActive:          77 kB\n";
    EXPECT_EQ(linuxutil::meminfoKB(meminfo, "MemTotal"), 16314488);
    EXPECT_EQ(linuxutil::meminfoKB(meminfo, "MemFree"), 123);
    EXPECT_EQ(linuxutil::meminfoKB(meminfo, "Active"), 77);
    EXPECT_EQ(linuxutil::meminfoKB(meminfo, "Mem"), -1);
    EXPECT_EQ(linuxutil::meminfoKB(QByteArray(), "MemFree"), -1);
    // 6 GiB + 3 MiB in the four counted fields wraps to 2051 MB; MemTotal is not counted.
    const QByteArray big = "MemTotal: 99999999 kB\nMemFree: 1048576 kB\nActive: 2097152 kB\n"
                           "Inactive: 3145728 kB\nUnevictable: 3072 kB\nActive(file): 7 kB\n";
    EXPECT_EQ(linuxutil::totalMemoryMB(big, 4096), 2051);
    EXPECT_EQ(linuxutil::totalMemoryMB(QByteArray(), 4096), 0);
    const QByteArray vmstat = "pswpin 5\npswpout 42\n";
    EXPECT_EQ(linuxutil::vmstatValue(vmstat, "pswpout"), 42);
    EXPECT_EQ(linuxutil::vmstatValue(vmstat, "pswp"), -1);
}

TEST(PlatformFacts, MemoryFiguresAgreeWithProc) {
    auto m = meminfo();
    const long long pageKB = sysconf(_SC_PAGESIZE) / 1024;

    int avail = -1, limit = -1;
    System::getAvailableMemoryMB(avail, limit);
    EXPECT_EQ(limit, 2047);
    const long long availMB = std::min<long long>(m["MemAvailable"] * 1024, 0x7FFFFFFF) >> 20;
    EXPECT_NEAR(avail, availMB, kSlackMB);
    EXPECT_LE(avail, 2047);

    int used = -1, paged = -1;
    System::getUsedMemoryMB(used, paged);
    EXPECT_NEAR(used, std::min<long long>(m["Unevictable"] * 1024, 0x7FFFFFFF) >> 20, kSlackMB);
    EXPECT_GE(paged, 0);
    EXPECT_LE(paged, 2047);

    int total = -1, total4 = -1;
    System::getTotalMemoryMB(total, total4);
    const long long pages =
        (m["MemFree"] + m["Active"] + m["Inactive"] + m["Unevictable"]) / pageKB;
    const long long expected = ((pages * pageKB * 1024) % (1LL << 32)) >> 20;
    // Distance on the 4096 MB circle the 32-bit wrap makes.
    const long long d = std::abs(total - expected) % 4096;
    EXPECT_LE(std::min(d, 4096 - d), kSlackMB) << total << " vs " << expected;
    EXPECT_GE(total, 0);
    EXPECT_LT(total, 4096);
    EXPECT_EQ(total4, 4 * total);
}

// Identity and errors -------------------------------------------------------------------------

TEST(PlatformFacts, GuidIsAFixedHeaderThenFreshUuidBytes) {
    const GUID a = System::getGUID();
    const GUID b = System::getGUID();
    EXPECT_EQ(std::memcmp(a.data, "mirelGID", 8), 0);
    EXPECT_EQ(std::memcmp(a.data, b.data, 8), 0);
    EXPECT_NE(std::memcmp(a.data + 8, b.data + 8, 8), 0);
    // A random UUID's version nibble sits in byte 6: the second half is the UUID's start.
    EXPECT_EQ(a.data[8 + 6] >> 4, 4);
}

TEST(PlatformFacts, LastErrorIsTheThreadsErrno) {
    errno = ENOENT;
    EXPECT_EQ(System::getLastError(), ENOENT);
    errno = 0;
    EXPECT_EQ(System::getLastError(), 0);
}

}  // namespace
}  // namespace mirel
