// Folders and files on real paths under a temporary directory.
#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>
#include <cstring>

#include "base/status/statuscode.h"
#include "base/system/file.h"
#include "base/system/system.h"
#include "base/testing/files.h"
#include "base/testing/tempenv.h"

namespace mirel {
namespace {

// The XDG folders of this process, kept away from the user's: set before the first look-up.
const QString gHome = [] {
    const QString home = testing::temporaryHome();
    setenv("XDG_DATA_HOME", qPrintable(home + "/data/deeper"), 1);
    setenv("XDG_CACHE_HOME", qPrintable(home + "/cache"), 1);
    return home;
}();

class Files : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    QString at(const QString& name) const { return tmp.path() + "/" + name; }
    void put(const QString& name, const QByteArray& data) { testing::writeFile(at(name), data); }
    QByteArray get(const QString& name) {
        QFile f(at(name));
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
    }
};

// Folders ---------------------------------------------------------------------------------

TEST_F(Files, FoldersAndTheirParentsAreMade) {
    for (const char* given : {"/opt/mirel", "/opt/mirel/"}) {
        System::setInstallPath(given);
        EXPECT_EQ(System::getInstallPath(), "/opt/mirel/");
    }
    // XDG_DATA_HOME's own parents do not exist yet: a plain mkdir would fail.
    EXPECT_EQ(System::getAppDirectory(), gHome + "/data/deeper/Vantor Mirel");
    EXPECT_TRUE(QFileInfo(gHome + "/data/deeper/Vantor Mirel").isDir());
    EXPECT_EQ(System::getCacheDirectory(), gHome + "/cache/Vantor Mirel");
    EXPECT_EQ(System::getTempDirectory(), QDir::tempPath() + "/");
    const QString temp = System::makeTempFilePath("shot", "png");
    const int n = temp.mid(QDir::tempPath().size() + 5).chopped(4).toInt();
    EXPECT_TRUE(temp.startsWith(QDir::tempPath() + "/shot") && temp.endsWith(".png") && n < 10000);

    EXPECT_EQ(System::makeAbsDirPath(""), status::kObjectAlreadyActive);
    EXPECT_EQ(System::makeAbsDirPath(at("a/b/../b/c//d")), StatusCode{0});
    EXPECT_TRUE(QFileInfo(at("a/b/c/d")).isDir());
    EXPECT_EQ(System::makeAbsDirPath(at("a/b/c/d/")), StatusCode{0});
    put("plain", "x");
    EXPECT_EQ(System::makeAbsDirPath(at("plain/sub")), status::kIOFailed);
}

TEST_F(Files, HostilePathsFailCleanly) {
    EXPECT_EQ(System::makeAbsDirPath(at(QString(5000, 'x'))), status::kIOFailed);
    // A NUL would cut the path short at the system, naming "<tmp>/nul" instead.
    put("nul", "secret");
    const QString withNul = at("nul") + QChar(0) + "x";
    EXPECT_EQ(System::makeAbsDirPath(withNul + "/more"), status::kIOFailed);
    errno = 0;
    EXPECT_EQ(System::open(withNul, O_RDONLY, 0), -1);
    EXPECT_EQ(System::getLastError(), EINVAL);
    EXPECT_EQ(System::unlink(withNul), -1);
    EXPECT_FALSE(file::exists(withNul));
    int size = -7;
    EXPECT_EQ(file::readFile(withNul, size), nullptr);
    EXPECT_EQ(size, -7);
    EXPECT_EQ(get("nul"), "secret");
    // Unpaired surrogates have no UTF-8 form; Qt would write U+FFFD in their place.
    EXPECT_EQ(System::makeAbsDirPath(at(QString("s") + QChar(0xD800))), status::kIOFailed);
    EXPECT_EQ(System::open(at(QString("t") + QChar(0xDC00)), O_WRONLY | O_CREAT, 0600), -1);

    auto cleaned = [](QString path) {
        file::cleanupPathname(path);
        return path;
    };
    EXPECT_EQ(cleaned(QString("/x//y") + QChar(0) + "/../z"), "/x/z");
    EXPECT_EQ(cleaned("http://host//a/./b/../c"), "http://host//a/./b/../c");
}

// Files --------------------------------------------------------------------------------------

TEST_F(Files, ReadFileGivesTheWholeFileOrNothing) {
    int size = -7;
    EXPECT_EQ(file::readFile(at("missing"), size), nullptr);
    EXPECT_EQ(size, -7);
    put("empty", "");
    void* block = file::readFile(at("empty"), size);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(size, 0);
    std::free(block);
    QByteArray data(300000, '\0');
    for (int i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 251);
    put("data", data);
    block = file::readFile(at("data"), size);
    ASSERT_NE(block, nullptr);
    ASSERT_EQ(size, data.size());
    EXPECT_EQ(std::memcmp(block, data.constData(), data.size()), 0);
    std::free(block);
    EXPECT_EQ(file::getSize(at("data")), 300000);
    EXPECT_EQ(file::getSize(at("missing")), -1);
}

TEST_F(Files, FilesOver2GiBThroughTheWideOffsets) {
    const int fd = System::open(at("sparse"), O_RDWR | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    const long long where = 3LL << 30;
    if (System::ftruncate(fd, where + 4) != 0) {
        System::close(fd);
        GTEST_SKIP() << "no sparse files here";
    }
    EXPECT_EQ(System::lseek(fd, where, SEEK_SET), where);
    EXPECT_EQ(System::write(fd, "tail", 4), 4);
    EXPECT_EQ(System::lseek(fd, 0, SEEK_END), where + 4);
    // The size word is 32 bits: 3 GiB + 4 reads as a negative number.
    EXPECT_EQ(System::getSize(fd), static_cast<int>(static_cast<unsigned>(where + 4)));
    EXPECT_EQ(file::getSize(at("sparse")), where + 4);
    // Too big for the size word, even where it wraps to a small number: refused, not cut.
    int size = 0;
    EXPECT_EQ(file::readFile(at("sparse"), size), nullptr);
    ASSERT_EQ(System::ftruncate(fd, (4LL << 30) + 16), 0);
    EXPECT_EQ(System::getSize(fd), 16);
    EXPECT_EQ(file::readFile(at("sparse"), size), nullptr);
    System::close(fd);
}

TEST_F(Files, WrappersPassResultsThrough) {
    put("f", "abc");
    EXPECT_EQ(System::access(at("f"), R_OK), 0);
    EXPECT_EQ(System::rename(at("f"), at("g")), 0);
    EXPECT_EQ(System::rename(at("f"), at("h")), -1);
    EXPECT_EQ(System::getLastError(), ENOENT);
    struct stat info;
    ASSERT_TRUE(file::wstat(at("g"), &info));
    EXPECT_EQ(System::unlink(at("g")), 0);
    EXPECT_FALSE(file::stat(qPrintable(at("g")), &info));
    unsigned long statsSize = 99;
    EXPECT_FALSE(System::loadProviderStats(nullptr, statsSize));
    EXPECT_EQ(statsSize, 0u);
    // getCompatName makes the file, truncating one that exists.
    put("compat", "old");
    EXPECT_EQ(file::getCompatName(at("compat"), true), at("compat"));
    EXPECT_EQ(get("compat"), "");
}

// Copying and moving ------------------------------------------------------------------------

TEST_F(Files, CopyAndMoveReplaceTheDestination) {
    put("src", "new");
    put("dst", "old and longer");
    EXPECT_TRUE(file::copy(at("src"), at("dst")));
    EXPECT_EQ(get("dst"), "new");
    put("dst2", "other");
    EXPECT_TRUE(file::move(at("dst"), at("dst2")));
    EXPECT_EQ(get("dst2"), "new");
    EXPECT_FALSE(file::exists(at("dst")));
    // A folder replaces a file, recursively, and a file replaces a folder.
    ASSERT_EQ(System::makeAbsDirPath(at("tree/inner")), StatusCode{0});
    put("tree/inner/leaf", "leaf");
    EXPECT_TRUE(file::copy(at("tree"), at("dst2")));
    EXPECT_EQ(get("dst2/inner/leaf"), "leaf");
    EXPECT_TRUE(file::move(at("src"), at("dst2")));
    EXPECT_EQ(get("dst2"), "new");
}

// rename() cannot cross file systems; the move copies and then removes the source.
TEST_F(Files, MoveAcrossFileSystems) {
    QTemporaryDir other("/dev/shm/mirel-XXXXXX");
    struct stat here, there;
    if (!other.isValid() || ::stat(qPrintable(other.path()), &there) != 0 ||
        ::stat(qPrintable(tmp.path()), &here) != 0 || here.st_dev == there.st_dev) {
        GTEST_SKIP() << "no second file system at /dev/shm";
    }
    ASSERT_EQ(System::makeAbsDirPath(at("tree/inner")), StatusCode{0});
    put("tree/inner/leaf", "leaf");
    EXPECT_TRUE(file::move(at("tree"), other.path() + "/tree"));
    EXPECT_FALSE(file::exists(at("tree")));
    QFile moved(other.path() + "/tree/inner/leaf");
    EXPECT_TRUE(moved.open(QIODevice::ReadOnly) && moved.readAll() == "leaf");
}

TEST_F(Files, CopyAndMoveRefuseWhatWouldLoseData) {
    put("keep", "keep");
    EXPECT_FALSE(file::copy(at("missing"), at("keep")));
    EXPECT_FALSE(file::move(at("missing"), at("keep")));
    // Onto itself, directly, through a dot segment or a link.
    EXPECT_FALSE(file::copy(at("keep"), at("keep")));
    EXPECT_FALSE(file::move(at("keep"), at("./keep")));
    ASSERT_EQ(::symlink(qPrintable(at("keep")), qPrintable(at("link"))), 0);
    EXPECT_FALSE(file::copy(at("keep"), at("link")));
    EXPECT_EQ(get("keep"), "keep");
    // Into its own folder, or over the folder that holds it; a similar name is no parent.
    ASSERT_EQ(System::makeAbsDirPath(at("dir/sub")), StatusCode{0});
    put("dir/sub/f", "f");
    EXPECT_FALSE(file::copy(at("dir"), at("dir/sub/copy")));
    EXPECT_FALSE(file::move(at("dir/sub/f"), at("dir")));
    EXPECT_EQ(get("dir/sub/f"), "f");
    EXPECT_TRUE(file::copy(at("dir"), at("dir2")));
    EXPECT_EQ(get("dir2/sub/f"), "f");
}

}  // namespace
}  // namespace mirel
