// Platform facts read from the Linux kernel and C library: uname, CPUID, cpufreq,
// /proc/meminfo and /proc/vmstat.
#include <errno.h>
#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>
#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#endif

#include <QUuid>

#include <cstdlib>
#include <cstring>

#include "base/linux/linuxutil_p.h"
#include "base/system/system.h"

namespace mirel {

namespace linuxutil {

void parseKernelRelease(const char* release, int numbers[4]) {
    for (int i = 0; i < 4; ++i) numbers[i] = 0;
    if (release == nullptr) return;
    const char* p = release;
    for (int i = 0; i < 4; ++i) {
        if (*p < '0' || *p > '9') return;
        long long value = 0;
        while (*p >= '0' && *p <= '9') {
            // Saturate: a release is never this long, but a hostile text must not overflow.
            if (value < 0x7FFFFFFF) value = value * 10 + (*p - '0');
            ++p;
        }
        // A number glued to letters ("0rc1") is not a version number.
        if (*p != '\0' && *p != '.' && *p != '-') return;
        numbers[i] = value > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(value);
        if (*p == '\0') return;
        ++p;
    }
}

QString formatOSVersionString(System::OSVersion os, int major, int minor, int bugfix,
                              int build) {
    QString text = System::getOSName(os);
    if (os == System::kOSMacOSX) {
        text += QStringLiteral("(%1.%2.%3)").arg(major).arg(minor).arg(bugfix);
    } else if (os == System::kOSLinux) {
        text += QStringLiteral("(%1.%2.%3.%4)").arg(major).arg(minor).arg(bugfix).arg(build);
    } else {
        text += QStringLiteral("(Service Pack %1)").arg(build);
    }
    return text;
}

unsigned long processorTypeForFamily(unsigned family) {
    if (family >= 6) return 6;
    if (family >= 3) return family;
    return 3;
}

int bytesToMB(std::int32_t bytes) {
    // Rounds toward zero, as a division would; the shift alone would round down.
    if (bytes < 0) bytes = static_cast<std::int32_t>(static_cast<std::int64_t>(bytes) + 0xFFFFF);
    return bytes >> 20;
}

int cappedMB(long long bytes) {
    if (bytes < 0 || bytes > 0x7FFFFFFF) bytes = 0x7FFFFFFF;
    return bytesToMB(static_cast<std::int32_t>(bytes));
}

namespace {

// The number after `key` at the start of a line, where the key is followed by `sep`.
long long fieldValue(const QByteArray& text, const char* key, char sep) {
    const QByteArray wanted = QByteArray(key) + sep;
    qsizetype from = 0;
    while (from < text.size()) {
        qsizetype end = text.indexOf('\n', from);
        if (end < 0) end = text.size();
        if (text.mid(from, wanted.size()) == wanted) {
            const QByteArray number = text.mid(from + wanted.size(), end - from - wanted.size())
                                          .trimmed()
                                          .split(' ')
                                          .value(0);
            bool ok = false;
            const long long value = number.toLongLong(&ok);
            return ok ? value : -1;
        }
        from = end + 1;
    }
    return -1;
}

}  // namespace

long long meminfoKB(const QByteArray& meminfo, const char* key) {
    return fieldValue(meminfo, key, ':');
}

long long vmstatValue(const QByteArray& vmstat, const char* key) {
    return fieldValue(vmstat, key, ' ');
}

int totalMemoryMB(const QByteArray& meminfo, long pageSize) {
    auto bytes = [&](const char* key) {
        const long long kb = meminfoKB(meminfo, key);
        return kb < 0 ? 0 : kb * 1024;
    };
    const long long pages = (bytes("MemFree") + bytes("Active") + bytes("Inactive") +
                             bytes("Unevictable")) /
                            pageSize;
    // The product in 32 bits wraps at 4 GiB on purpose; the shift is unsigned.
    const std::uint32_t product =
        static_cast<std::uint32_t>(pages) * static_cast<std::uint32_t>(pageSize);
    return static_cast<int>(product >> 20);
}

QByteArray readProcFile(const char* path) {
    // /proc files report a size of 0, so they are read until the end, not by their size.
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return QByteArray();
    QByteArray text;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        text.append(buffer, n);
    }
    ::close(fd);
    return text;
}

}  // namespace linuxutil

namespace {

long long meminfoBytes(const QByteArray& meminfo, const char* key) {
    const long long kb = linuxutil::meminfoKB(meminfo, key);
    return kb < 0 ? 0 : kb * 1024;
}

}  // namespace

System::OSVersion System::getOSVersion() {
    OSVersion os;
    int major, minor, bugfix, build;
    getOSVersion(os, major, minor, bugfix, build);
    return os;
}

void System::getOSVersion(OSVersion& os, int& major, int& minor, int& bugfix, int& build) {
    os = kOSLinux;
    int numbers[4] = {0, 0, 0, 0};
    utsname name;
    if (uname(&name) == 0) linuxutil::parseKernelRelease(name.release, numbers);
    major = numbers[0];
    minor = numbers[1];
    bugfix = numbers[2];
    build = numbers[3];
}

QString System::getOSName(OSVersion& os) {
    static const char* const names[] = {
        "UNKNOWN ",           "Microsoft Win32s ",       "Microsoft Windows 95 ",
        "Windows 98 ",        "Windows ME ",             "Microsoft Windows NT ",
        "Microsoft Windows 2000 ", "Microsoft Windows XP ", "Microsoft Windows Server , ",
        "Mac OS X ",          "Linux ",
    };
    const auto index = static_cast<std::uint32_t>(os);
    return QString::fromLatin1(index < std::size(names) ? names[index] : names[0]);
}

QString System::getOSVersionString() {
    OSVersion os;
    int major, minor, bugfix, build;
    getOSVersion(os, major, minor, bugfix, build);
    return linuxutil::formatOSVersionString(os, major, minor, bugfix, build);
}

unsigned long System::getProcessorType() {
#if defined(__i386__) || defined(__x86_64__)
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) return 3;
    unsigned family = (eax >> 8) & 0xF;
    if (family == 0xF) family += (eax >> 20) & 0xFF;
    return linuxutil::processorTypeForFamily(family);
#elif defined(__powerpc__) || defined(__powerpc64__)
    return 0x80000001;
#else
    return 0;
#endif
}

int System::getNumProcessors() { return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)); }

float System::getProcessorClockSpeed() {
    const QByteArray maxFreq =
        linuxutil::readProcFile("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq");
    bool ok = false;
    const double kHz = maxFreq.trimmed().toDouble(&ok);
    if (ok && kHz > 0) return static_cast<float>(kHz * 1000.0);
    // Virtual machines often have no cpufreq; the first processor's current clock stands in.
    const QByteArray cpuinfo = linuxutil::readProcFile("/proc/cpuinfo");
    for (const QByteArray& line : cpuinfo.split('\n')) {
        if (!line.startsWith("cpu MHz")) continue;
        const qsizetype colon = line.indexOf(':');
        if (colon < 0) break;
        const double mhz = line.mid(colon + 1).trimmed().toDouble(&ok);
        return ok && mhz > 0 ? static_cast<float>(mhz * 1e6) : 0.0f;
    }
    return 0.0f;
}

void System::getAvailableMemoryMB(int& avail, int& limit) {
    const QByteArray meminfo = linuxutil::readProcFile("/proc/meminfo");
    avail = linuxutil::cappedMB(meminfoBytes(meminfo, "MemAvailable"));
    limit = linuxutil::bytesToMB(0x7FFFFFFF);
}

void System::getUsedMemoryMB(int& used, int& paged) {
    const QByteArray meminfo = linuxutil::readProcFile("/proc/meminfo");
    const QByteArray vmstat = linuxutil::readProcFile("/proc/vmstat");
    used = linuxutil::cappedMB(meminfoBytes(meminfo, "Unevictable"));
    const long long pages = linuxutil::vmstatValue(vmstat, "pswpout");
    paged = linuxutil::cappedMB(pages < 0 ? 0 : pages * sysconf(_SC_PAGESIZE));
}

void System::getTotalMemoryMB(int& total, int& total4) {
    total = linuxutil::totalMemoryMB(linuxutil::readProcFile("/proc/meminfo"),
                                     sysconf(_SC_PAGESIZE));
    total4 = total * 4;
}

bool System::supportsIntelMMX() { return false; }

bool System::supportsIntelSIMD() { return false; }

GUID System::getGUID() {
    // The fixed half stands where the platform's object header would be.
    static constexpr unsigned char kHeader[8] = {'m', 'i', 'r', 'e', 'l', 'G', 'I', 'D'};
    GUID guid;
    std::memcpy(guid.data, kHeader, 8);
    const QByteArray uuid = QUuid::createUuid().toRfc4122();
    std::memcpy(guid.data + 8, uuid.constData(), 8);
    return guid;
}

int System::getLastError() { return errno; }

}  // namespace mirel
