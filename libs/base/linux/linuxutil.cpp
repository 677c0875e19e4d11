// The Linux platform layer's helpers: kernel texts, codes, path checks, sleeping and the
// processor count. Used by the platform layer and by the lower layers of the library.
#include "base/linux/linuxutil_p.h"

#include <errno.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <iterator>

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

QString osDisplayName(std::int32_t os) {
    static const char* const names[] = {
        "UNKNOWN ",           "Microsoft Win32s ",       "Microsoft Windows 95 ",
        "Windows 98 ",        "Windows ME ",             "Microsoft Windows NT ",
        "Microsoft Windows 2000 ", "Microsoft Windows XP ", "Microsoft Windows Server , ",
        "Mac OS X ",          "Linux ",
    };
    const auto index = static_cast<std::uint32_t>(os);
    return QString::fromLatin1(index < std::size(names) ? names[index] : names[0]);
}

QString formatOSVersionString(std::int32_t os, int major, int minor, int bugfix, int build) {
    QString text = osDisplayName(os);
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



bool systemPath(const QString& path, QByteArray& out) {
    const qsizetype n = path.size();
    const QChar* units = path.constData();
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t u = units[i].unicode();
        if (u == 0) return false;
        if (QChar::isHighSurrogate(u)) {
            if (i + 1 >= n || !QChar::isLowSurrogate(units[i + 1].unicode())) return false;
            ++i;
        } else if (QChar::isLowSurrogate(u)) {
            return false;
        }
    }
    out = path.toUtf8();
    return true;
}

int sleepMilliseconds(int ms) {
    timespec t;
    if (ms == -1) {
        t.tv_sec = 0x7FFFFFFF;
        t.tv_nsec = 0;
    } else {
        // Truncating division: a negative value other than -1 gives a negative time, which
        // nanosleep refuses at once.
        t.tv_sec = ms / 1000;
        t.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    }
    return nanosleep(&t, nullptr);
}

int onlineProcessors() { return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)); }

}  // namespace linuxutil

}  // namespace mirel
