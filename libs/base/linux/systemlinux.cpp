// Platform facts read from the Linux kernel and C library: uname, CPUID, cpufreq,
// /proc/meminfo and /proc/vmstat.
#include <errno.h>
#include <sys/utsname.h>
#include <unistd.h>
#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#endif

#include <QUuid>

#include <cstring>

#include "base/linux/linuxutil_p.h"
#include "base/system/system.h"

namespace mirel {


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

QString System::getOSName(OSVersion& os) { return linuxutil::osDisplayName(os); }

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

int System::getNumProcessors() { return linuxutil::onlineProcessors(); }

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
