// Folders and files on real paths under a temporary directory.
#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cstdlib>
#include <cstring>

#include "base/system/file.h"
#include "base/system/system.h"

namespace mirel {
namespace {

// The XDG folders of this process, kept away from the user's: set before the first look-up.
const QString gHome = [] {
    static QTemporaryDir dir;
    setenv("HOME", qPrintable(dir.path()), 1);
    setenv("XDG_DATA_HOME", qPrintable(dir.path() + "/data/deeper"), 1);
    setenv("XDG_CACHE_HOME", qPrintable(dir.path() + "/cache"), 1);
    return dir.path();
}();

void writeFile(const QString& path, const QByteArray& data) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly)) << path.toStdString();
    ASSERT_EQ(f.write(data), data.size());
}

QByteArray contents(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

class Files : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    QString at(const QString& name) const { return tmp.path() + "/" + name; }
};

// Folders ---------------------------------------------------------------------------------

TEST_F(Files, InstallPathKeepsOneFinalSlash) {
    System::setInstallPath("/opt/mirel");
    EXPECT_EQ(System::getInstallPath(), "/opt/mirel/");
    System::setInstallPath("/opt/mirel/");
    EXPECT_EQ(System::getInstallPath(), "/opt/mirel/");
    System::setInstallPath("");
    EXPECT_EQ(System::getInstallPath(), "/");
}

TEST_F(Files, UserFoldersAreTheXdgOnesAndMadeWithTheirParents) {
    // XDG_DATA_HOME's own parents do not exist yet: a plain mkdir would fail.
    const QString app = System::getAppDirectory();
    EXPECT_EQ(app, gHome + "/data/deeper/Vantor Mirel");
    EXPECT_TRUE(QFileInfo(app).isDir());
    const QString cache = System::getCacheDirectory();
    EXPECT_EQ(cache, gHome + "/cache/Vantor Mirel");
    EXPECT_TRUE(QFileInfo(cache).isDir());
    EXPECT_EQ(System::getMyDocumentsDirectory(),
              QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
    EXPECT_EQ(System::getTempDirectory(), QDir::tempPath() + "/");

    const QString temp = System::makeTempFilePath("shot", "png");
    ASSERT_TRUE(temp.startsWith(QDir::tempPath() + "/shot"));
    ASSERT_TRUE(temp.endsWith(".png"));
    bool ok = false;
    const int n = temp.mid(QDir::tempPath().size() + 5).chopped(4).toInt(&ok);
    EXPECT_TRUE(ok) << temp.toStdString();
    EXPECT_GE(n, 0);
    EXPECT_LT(n, 10000);
    EXPECT_FALSE(System::makeTempFilePath("x", "").contains('.'));
}

TEST_F(Files, MakeAbsDirPathMakesEveryMissingFolder) {
    EXPECT_EQ(System::makeAbsDirPath(""), 0xC0000001u);
    const QString nested = at("a/b/../b/c//d");
    EXPECT_EQ(System::makeAbsDirPath(nested), 0u);
    EXPECT_TRUE(QFileInfo(at("a/b/c/d")).isDir());
    // Existing: nothing made, still success.
    struct stat before;
    ASSERT_EQ(::stat(qPrintable(at("a/b/c/d")), &before), 0);
    EXPECT_EQ(System::makeAbsDirPath(at("a/b/c/d/")), 0u);
    struct stat after;
    ASSERT_EQ(::stat(qPrintable(at("a/b/c/d")), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    // A component that is a file.
    writeFile(at("plain"), "x");
    EXPECT_EQ(System::makeAbsDirPath(at("plain/sub")), 0xC0000008u);
    EXPECT_FALSE(QFileInfo::exists(at("plain/sub")));
    // No permission to make the next level.
    if (geteuid() != 0) {
        ASSERT_EQ(System::makeAbsDirPath(at("locked")), 0u);
        ::chmod(qPrintable(at("locked")), 0500);
        EXPECT_EQ(System::makeAbsDirPath(at("locked/inner")), 0xC0000008u);
        ::chmod(qPrintable(at("locked")), 0700);
    }
}

TEST_F(Files, HostilePathsFailCleanly) {
    // Longer than any path the kernel takes.
    const QString longPath = at(QString(5000, 'x'));
    EXPECT_EQ(System::makeAbsDirPath(longPath), 0xC0000008u);
    const QString deep = at(QString("abcdefgh/").repeated(600));
    EXPECT_EQ(System::makeAbsDirPath(deep), 0xC0000008u);

    // A NUL would cut the path short at the system: "<tmp>/nul" must not be made or opened.
    const QString withNul = at(QString("nul") + QChar(0) + "/more");
    EXPECT_EQ(System::makeAbsDirPath(withNul), 0xC0000008u);
    EXPECT_FALSE(QFileInfo::exists(at("nul")));
    writeFile(at("nul"), "secret");
    errno = 0;
    EXPECT_EQ(System::open(at("nul") + QChar(0) + "x", O_RDONLY, 0), -1);
    EXPECT_EQ(System::getLastError(), EINVAL);
    EXPECT_EQ(System::unlink(at("nul") + QChar(0)), -1);
    EXPECT_TRUE(QFileInfo::exists(at("nul")));
    int size = -7;
    EXPECT_EQ(file::readFile(at("nul") + QChar(0), size), nullptr);
    EXPECT_EQ(size, -7);
    EXPECT_FALSE(file::exists(at("nul") + QChar(0)));

    // An unpaired surrogate has no UTF-8 form; Qt would write U+FFFD in its place.
    const QString lone = at(QString("s") + QChar(0xD800));
    EXPECT_EQ(System::makeAbsDirPath(lone), 0xC0000008u);
    EXPECT_EQ(System::open(lone, O_WRONLY | O_CREAT, 0600), -1);
    EXPECT_EQ(System::open(at(QString("t") + QChar(0xDC00) + "u"), O_WRONLY | O_CREAT, 0600), -1);
    EXPECT_FALSE(QFileInfo::exists(at(QString("s") + QChar(0xFFFD))));
    EXPECT_FALSE(QFileInfo::exists(at(QString("t") + QChar(0xFFFD) + "u")));

    // A file whose name is not UTF-8 is listed with a name that does not lead back to it.
    const QByteArray raw = QFile::encodeName(tmp.path()) + "/\xff\xfe.bin";
    const int fd = ::open(raw.constData(), O_WRONLY | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    ::close(fd);
    const QString listed = tmp.path() + "/" + QDir(tmp.path()).entryList({"*.bin"}).value(0);
    EXPECT_EQ(file::readFile(listed, size), nullptr);
    EXPECT_EQ(System::makeAbsDirPath(listed + "/sub"), 0u);  // a sibling, made cleanly

    // Clean-up of hostile text: nothing read beyond it, NULs kept where they were.
    QString huge = QString("/a//b/./c/../").repeated(100000);
    file::cleanupPathname(huge);
    EXPECT_EQ(huge, QString("/a/b").repeated(100000));
    QString nul = QString("/x//y") + QChar(0) + "/../z";
    file::cleanupPathname(nul);
    EXPECT_EQ(nul, QString("/x/z"));
}

TEST_F(Files, CleanupLeavesUrlsAlone) {
    QString url = "http://host//a/./b/../c";
    file::cleanupPathname(url);
    EXPECT_EQ(url, "http://host//a/./b/../c");
    QString mixed = "/data//x/../file://y";
    file::cleanupPathname(mixed);
    EXPECT_EQ(mixed, "/data//x/../file://y");
    QString plain = "/usr//local/./lib/../share";
    file::cleanupPathname(plain);
    EXPECT_EQ(plain, "/usr/local/share");
}

// Reading --------------------------------------------------------------------------------

TEST_F(Files, ReadFileGivesTheWholeFileOrNothing) {
    int size = -7;
    EXPECT_EQ(file::readFile(at("missing"), size), nullptr);
    EXPECT_EQ(size, -7);

    writeFile(at("empty"), "");
    void* block = file::readFile(at("empty"), size);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(size, 0);
    std::free(block);

    // Several pipe-sized reads' worth, with bytes that show misplaced chunks.
    QByteArray data(300000, '\0');
    for (int i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 251);
    writeFile(at("data"), data);
    block = file::readFile(at("data"), size);
    ASSERT_NE(block, nullptr);
    ASSERT_EQ(size, data.size());
    EXPECT_EQ(std::memcmp(block, data.constData(), data.size()), 0);
    std::free(block);
    EXPECT_EQ(file::getSize(at("data")), 300000);
    EXPECT_EQ(file::getSize(at("missing")), -1);

    // A folder opens but cannot be read.
    size = -7;
    EXPECT_EQ(file::readFile(tmp.path(), size), nullptr);
}

TEST_F(Files, FilesOver2GiBThroughTheWideOffsets) {
    struct statvfs fsInfo;
    ASSERT_EQ(statvfs(qPrintable(tmp.path()), &fsInfo), 0);
    const int fd = System::open(at("sparse"), O_RDWR | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    const long long where = 3LL << 30;  // 3 GiB
    if (System::ftruncate(fd, where + 4) != 0) {
        System::close(fd);
        GTEST_SKIP() << "no sparse files here";
    }
    EXPECT_EQ(System::lseek(fd, where, SEEK_SET), where);
    EXPECT_EQ(System::write(fd, "tail", 4), 4);
    EXPECT_EQ(System::lseek(fd, 0, SEEK_END), where + 4);
    // The size word is 32 bits: 3 GiB + 4 reads as a negative number.
    EXPECT_EQ(System::getSize(fd), static_cast<int>(static_cast<unsigned>(where + 4)));
    EXPECT_LT(System::getSize(fd), 0);
    char back[4] = {};
    EXPECT_EQ(System::lseek(fd, where, SEEK_SET), where);
    EXPECT_EQ(System::read(fd, back, 4), 4);
    EXPECT_EQ(std::memcmp(back, "tail", 4), 0);
    System::close(fd);
    EXPECT_EQ(file::getSize(at("sparse")), where + 4);
    // Too big for the size word: refused, not cut short.
    int size = 0;
    EXPECT_EQ(file::readFile(at("sparse"), size), nullptr);
    EXPECT_EQ(size, static_cast<int>(static_cast<unsigned>(where + 4)));
    // 4 GiB + 16 would wrap to 16: still refused.
    const int fd2 = System::open(at("sparse"), O_RDWR, 0);
    ASSERT_EQ(System::ftruncate(fd2, (4LL << 30) + 16), 0);
    EXPECT_EQ(System::getSize(fd2), 16);
    System::close(fd2);
    EXPECT_EQ(file::readFile(at("sparse"), size), nullptr);
    EXPECT_EQ(System::getSize(-1), -1);
}

TEST_F(Files, PosixWrappersPassResultsThrough) {
    writeFile(at("f"), "abc");
    EXPECT_EQ(System::access(at("f"), R_OK), 0);
    EXPECT_EQ(System::access(at("g"), F_OK), -1);
    EXPECT_EQ(System::getLastError(), ENOENT);
    EXPECT_EQ(System::rename(at("f"), at("g")), 0);
    EXPECT_EQ(contents(at("g")), "abc");
    EXPECT_EQ(System::rename(at("f"), at("h")), -1);
    EXPECT_EQ(System::unlink(at("g")), 0);
    EXPECT_EQ(System::unlink(at("g")), -1);
    struct stat info;
    EXPECT_FALSE(file::wstat(at("g"), &info));
    writeFile(at("s"), "12345");
    ASSERT_TRUE(file::wstat(at("s"), &info));
    EXPECT_EQ(info.st_size, 5);
    EXPECT_TRUE(file::stat(qPrintable(at("s")), &info));
    EXPECT_FALSE(file::stat(qPrintable(at("nope")), &info));

    System::DirectIoInfo io{1, 2, 3};
    EXPECT_FALSE(System::supportsDirectIo(at("s")));
    EXPECT_FALSE(System::getDirectIoInfo(at("s"), io));
    EXPECT_EQ(io.memoryAlignment + io.offsetAlignment + io.sizeAlignment, 6u);
    unsigned long statsSize = 99;
    EXPECT_FALSE(System::loadProviderStats(nullptr, statsSize));
    EXPECT_EQ(statsSize, 0u);
    EXPECT_FALSE(System::saveProviderStats("x", 1));

    // getCompatName makes the file, truncating one that exists.
    EXPECT_EQ(file::getCompatName(at("compat"), false), at("compat"));
    EXPECT_FALSE(file::exists(at("compat")));
    EXPECT_EQ(file::getCompatName(at("compat"), true), at("compat"));
    EXPECT_EQ(contents(at("compat")), "");
    writeFile(at("compat"), "old");
    file::getCompatName(at("compat"), true);
    EXPECT_EQ(contents(at("compat")), "");
}

// Copying and moving ------------------------------------------------------------------------

TEST_F(Files, CopyAndMoveReplaceTheDestination) {
    writeFile(at("src"), "new");
    writeFile(at("dst"), "old and longer");
    EXPECT_TRUE(file::copy(at("src"), at("dst")));
    EXPECT_EQ(contents(at("dst")), "new");
    EXPECT_EQ(contents(at("src")), "new");

    writeFile(at("dst2"), "other");
    EXPECT_TRUE(file::move(at("dst"), at("dst2")));
    EXPECT_EQ(contents(at("dst2")), "new");
    EXPECT_FALSE(file::exists(at("dst")));

    // A folder replaces a file, recursively.
    ASSERT_EQ(System::makeAbsDirPath(at("tree/inner")), 0u);
    writeFile(at("tree/inner/leaf"), "leaf");
    EXPECT_TRUE(file::copy(at("tree"), at("dst2")));
    EXPECT_EQ(contents(at("dst2/inner/leaf")), "leaf");
    // and a file replaces a folder.
    EXPECT_TRUE(file::move(at("src"), at("dst2")));
    EXPECT_EQ(contents(at("dst2")), "new");
    EXPECT_FALSE(file::exists(at("src")));
}

TEST_F(Files, CopyAndMoveRefuseWhatWouldLoseData) {
    writeFile(at("keep"), "keep");
    EXPECT_FALSE(file::copy(at("missing"), at("keep")));
    EXPECT_FALSE(file::move(at("missing"), at("keep")));
    EXPECT_EQ(contents(at("keep")), "keep");
    // Onto itself, directly or through a link or a dot segment.
    EXPECT_FALSE(file::copy(at("keep"), at("keep")));
    EXPECT_FALSE(file::move(at("keep"), at("./keep")));
    ASSERT_EQ(::symlink(qPrintable(at("keep")), qPrintable(at("link"))), 0);
    EXPECT_FALSE(file::copy(at("keep"), at("link")));
    EXPECT_EQ(contents(at("keep")), "keep");
    // Into its own folder, or over the folder that holds it.
    ASSERT_EQ(System::makeAbsDirPath(at("dir/sub")), 0u);
    writeFile(at("dir/sub/f"), "f");
    EXPECT_FALSE(file::copy(at("dir"), at("dir/sub/copy")));
    EXPECT_FALSE(file::move(at("dir/sub/f"), at("dir")));
    EXPECT_EQ(contents(at("dir/sub/f")), "f");
    EXPECT_FALSE(file::exists(at("dir/sub/copy")));
    // A similar name is not a parent.
    EXPECT_TRUE(file::copy(at("dir"), at("dir2")));
    EXPECT_EQ(contents(at("dir2/sub/f")), "f");
}

}  // namespace
}  // namespace mirel
