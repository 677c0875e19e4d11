// Paths and files on Linux: the XDG folders through QStandardPaths, the POSIX file calls on
// UTF-8 paths, and the whole-file helpers of mirel::file on std::filesystem.
#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "base/linux/linuxutil_p.h"
#include "base/system/file.h"
#include "base/system/system.h"

namespace mirel {

namespace fs = std::filesystem;

namespace {

constexpr const char* kAppFolder = "/Vantor Mirel";

QString sInstallPath;

QString madeFolder(QStandardPaths::StandardLocation where) {
    const QString path = QStandardPaths::writableLocation(where) + QLatin1String(kAppFolder);
    // mkpath, not mkdir: on a fresh account ~/.local/share itself may be missing.
    QDir().mkpath(path);
    return path;
}

bool toSystem(const QString& path, QByteArray& out) {
    if (linuxutil::systemPath(path, out)) return true;
    errno = EINVAL;
    return false;
}

// A large block is its own mapping, filled page by page by read(): with huge pages the
// kernel takes one fault per 2 MiB instead of one per 4 KiB. Only a hint.
void adviseHugePages(void* block, size_t size) {
    constexpr size_t kHuge = 2 << 20;
    if (size < 2 * kHuge) return;
    const auto begin = (reinterpret_cast<std::uintptr_t>(block) + kHuge - 1) & ~(kHuge - 1);
    const auto end = (reinterpret_cast<std::uintptr_t>(block) + size) & ~(kHuge - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

fs::path fsPath(const QByteArray& utf8) { return fs::path(utf8.toStdString()); }

// Whether `inner` is `outer` or lies below it, both made absolute and normal, symbolic
// links resolved as far as the paths exist.
bool within(const fs::path& inner, const fs::path& outer) {
    std::error_code ec;
    const fs::path a = fs::weakly_canonical(inner, ec);
    if (ec) return false;
    const fs::path b = fs::weakly_canonical(outer, ec);
    if (ec) return false;
    auto ia = a.begin();
    for (auto ib = b.begin(); ib != b.end(); ++ib, ++ia) {
        // A final empty element stands for a trailing separator.
        if (ib->empty()) continue;
        if (ia == a.end() || *ia != *ib) return false;
    }
    return true;
}

// What copy() and move() share: the paths, the refusals and the removal of the
// destination.
bool prepare(const QString& from, const QString& to, fs::path& source, fs::path& target) {
    QByteArray a, b;
    if (!toSystem(from, a) || !toSystem(to, b)) return false;
    if (!file::exists(from)) return false;
    source = fsPath(a);
    target = fsPath(b);
    // Removing the destination first would destroy the source itself.
    if (within(source, target) || within(target, source)) return false;
    std::error_code ec;
    fs::remove_all(target, ec);
    return true;
}

}  // namespace

// Paths ---------------------------------------------------------------------------------------

void System::setInstallPath(const QString& path) {
    sInstallPath = path;
    if (!sInstallPath.endsWith(QLatin1Char('/'))) sInstallPath += QLatin1Char('/');
}

QString System::getInstallPath() { return sInstallPath; }

QString System::getAppDirectory() { return madeFolder(QStandardPaths::GenericDataLocation); }

QString System::getCacheDirectory() { return madeFolder(QStandardPaths::GenericCacheLocation); }

QString System::getMyDocumentsDirectory() {
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
}

QString System::getTempDirectory() { return QDir::tempPath() + QLatin1Char('/'); }

StatusCode System::makeAbsDirPath(const QString& path) {
    if (path.isEmpty()) return status::kObjectAlreadyActive;  // 0xC0000001
    QByteArray checked;
    if (!linuxutil::systemPath(path, checked)) return status::kIOFailed;
    const QStringList parts = QDir::cleanPath(path).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    QString built;
    for (const QString& part : parts) {
        built += QLatin1Char('/') + part;
        QByteArray utf8 = built.toUtf8();
        struct ::stat info;
        if (::stat(utf8.constData(), &info) == 0) {
            // A file where a folder should be: the next mkdir would fail anyway.
            if (!S_ISDIR(info.st_mode)) return status::kIOFailed;
            continue;
        }
        if (::mkdir(utf8.constData(), 0777) != 0 && errno != EEXIST) return status::kIOFailed;
    }
    return 0;
}

QString System::makeTempFilePath(const QString& prefix, const QString& extension) {
    QString path = getTempDirectory() + prefix + QStringLiteral("%1").arg(random(0, 10000));
    if (!extension.isEmpty()) path += QLatin1Char('.') + extension;
    return path;
}

// Files ----------------------------------------------------------------------------------------

int System::open(const QString& path, int flags, int mode) {
    QByteArray utf8;
    if (!toSystem(path, utf8)) return -1;
    return ::open(utf8.constData(), flags, mode);
}

int System::open(const char* path, int flags, int mode) { return ::open(path, flags, mode); }

int System::close(int fd) { return ::close(fd); }

long System::read(int fd, void* buffer, unsigned long count) { return ::read(fd, buffer, count); }

long System::write(int fd, const void* buffer, unsigned long count) {
    return ::write(fd, buffer, count);
}

long long System::lseek(int fd, long long offset, int whence) {
    static_assert(sizeof(off_t) == 8, "64-bit file offsets");
    return ::lseek(fd, static_cast<off_t>(offset), whence);
}

int System::ftruncate(int fd, long long length) {
    return ::ftruncate(fd, static_cast<off_t>(length));
}

int System::getSize(int fd) {
    struct ::stat info;
    if (::fstat(fd, &info) != 0) return -1;
    // Cut to 32 bits as the size word is; lseek gives the whole size.
    return static_cast<int>(static_cast<std::uint32_t>(info.st_size));
}

int System::unlink(const QString& path) {
    QByteArray utf8;
    if (!toSystem(path, utf8)) return -1;
    return ::unlink(utf8.constData());
}

int System::rename(const QString& from, const QString& to) {
    QByteArray a, b;
    if (!toSystem(from, a) || !toSystem(to, b)) return -1;
    return ::rename(a.constData(), b.constData());
}

int System::access(const QString& path, int mode) {
    QByteArray utf8;
    if (!toSystem(path, utf8)) return -1;
    return ::access(utf8.constData(), mode);
}

bool System::supportsDirectIo(const QString&) { return false; }

bool System::getDirectIoInfo(const QString&, DirectIoInfo&) { return false; }

bool System::loadProviderStats(void*, unsigned long& size) {
    size = 0;
    return false;
}

bool System::saveProviderStats(const void*, unsigned long) { return false; }

// mirel::file ----------------------------------------------------------------------------------

namespace file {

bool exists(const QString& path) {
    QByteArray utf8;
    if (!linuxutil::systemPath(path, utf8)) return false;
    return QFileInfo::exists(path);
}

long long getSize(const QString& path) {
    struct ::stat info;
    if (!wstat(path, &info)) return -1;
    return info.st_size;
}

void* readFile(const QString& path, int& size) {
    const int fd = System::open(path, O_RDONLY | O_CLOEXEC, 0);
    if (fd == -1) return nullptr;
    size = System::getSize(fd);
    struct ::stat info;
    if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
        System::close(fd);
        errno = EISDIR;
        return nullptr;
    }
    // The size word cannot hold it: refuse rather than hand back a cut-off file.
    if (size < 0 || info.st_size > INT_MAX) {
        System::close(fd);
        errno = EFBIG;
        return nullptr;
    }
    // One byte at least, so that an empty file still gives a block, not a failure.
    auto* block = static_cast<char*>(std::malloc(size > 0 ? static_cast<size_t>(size) : 1));
    if (block != nullptr) {
        adviseHugePages(block, static_cast<size_t>(size));
        long done = 0;
        while (done < size) {
            const long n = System::read(fd, block + done, static_cast<unsigned long>(size - done));
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                const int error = errno;
                std::free(block);
                block = nullptr;
                errno = error;
                break;
            }
            // The file shrank while being read: what was read is what there is.
            if (n == 0) {
                size = static_cast<int>(done);
                break;
            }
            done += n;
        }
    }
    const int error = errno;
    System::close(fd);
    errno = error;
    return block;
}

bool copy(const QString& from, const QString& to) {
    fs::path source, target;
    if (!prepare(from, to, source, target)) return false;
    std::error_code ec;
    fs::copy(source, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    return !ec;
}

bool move(const QString& from, const QString& to) {
    fs::path source, target;
    if (!prepare(from, to, source, target)) return false;
    std::error_code ec;
    fs::rename(source, target, ec);
    if (!ec) return true;
    if (ec != std::errc::cross_device_link) return false;
    fs::copy(source, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    if (ec) {
        // Half a copy is worse than none: the source is still whole.
        fs::remove_all(target, ec);
        return false;
    }
    fs::remove_all(source, ec);
    return !ec;
}

QString getCompatName(const QString& path, bool create) {
    if (create) {
        const int fd = System::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (fd != -1) System::close(fd);
    }
    return path;
}

bool stat(const char* path, struct ::stat* info) { return ::stat(path, info) == 0; }

bool wstat(const QString& path, struct ::stat* info) {
    QByteArray utf8;
    if (!toSystem(path, utf8)) return false;
    return ::stat(utf8.constData(), info) == 0;
}

void cleanupPathname(QString& path) {
    if (path.contains(QLatin1String("://"))) return;
    path = QDir::cleanPath(path);
}

}  // namespace file

}  // namespace mirel
