// Resource look-up on a real resource tree with locale folders, and real images decoded.
#include "base/system/binres.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QColor>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QSettings>
#include <QTemporaryDir>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/system/system.h"
#include "base/version/versioninfo.h"

namespace mirel {
namespace {

const QString gConfigHome = [] {
    static QTemporaryDir dir;
    setenv("XDG_CONFIG_HOME", qPrintable(dir.path()), 1);
    setenv("HOME", qPrintable(dir.path()), 1);
    return dir.path();
}();

void ensureGuiApp() {
    static int argc = 1;
    static char name[] = "binres_test";
    static char* argv[] = {name, nullptr};
    if (QCoreApplication::instance() == nullptr) new QGuiApplication(argc, argv);
}

void writeFile(const QString& path, const QByteArray& data) {
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly)) << path.toStdString();
    f.write(data);
}

QByteArray png(int w, int h, QColor color) {
    QImage image(w, h, QImage::Format_ARGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

// The table ---------------------------------------------------------------------------------

TEST(ResourceNames, FirstMatchingRowWins) {
    EXPECT_STREQ(FindResName(211), "dglogo");
    EXPECT_STREQ(FindResName(550), "clear");
    EXPECT_STREQ(FindResName(638), "streamed_layers");
    EXPECT_STREQ(FindResName(252), "cursor_hand_open");
    EXPECT_STREQ(FindResName(521), "cursor_hand_open");
    EXPECT_STREQ(FindResName(786), "play-forward");
    EXPECT_EQ(FindResName(0), nullptr);
    EXPECT_EQ(FindResName(-211), nullptr);
    // Order and duplicates as the application's resource numbering has them.
    EXPECT_EQ(resIDNameMap[0].id, 211);
    EXPECT_EQ(resIDNameMap[11].id, 638);
    EXPECT_EQ(resIDNameMap[20].id, 638);
    EXPECT_EQ(resIDNameMap[kResIDNameCount - 1].id, 550);
    int ids = 0;
    for (const ResIDName& row : resIDNameMap) {
        EXPECT_STREQ(FindResName(row.id), row.name) << row.id;
        ids += row.id;
    }
    EXPECT_EQ(ids, 39898);  // the sum of all 62 numbers: a lost or mistyped row shows
}

// Files ---------------------------------------------------------------------------------------

class Resources : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    QString dir;
    void SetUp() override {
        dir = tmp.path() + "/res";
        BinRes::setResourceDirectory(dir);
        writeFile(dir + "/dglogo.png", png(3, 2, Qt::red));
        writeFile(dir + "/clear.png", "not an image");
        writeFile(dir + "/banner.xpm", "");
        QDir().mkpath(dir + "/stop.png");  // a folder is no resource
    }
    void TearDown() override { BinRes::setResourceDirectory(QString()); }
};

TEST_F(Resources, FolderDefaultsToTheInstallPath) {
    BinRes::setResourceDirectory(QString());
    System::setInstallPath("/opt/app");
    EXPECT_EQ(BinRes::getResourceDirectory(), "/opt/app/resources/");
    BinRes::setResourceDirectory("/x/y");
    EXPECT_EQ(BinRes::getResourceDirectory(), "/x/y/");
}

TEST_F(Resources, PathsByNameAndNumber) {
    EXPECT_EQ(BinRes::GetResourcePath("PNG", "dglogo"), dir + "/dglogo.png");
    EXPECT_EQ(MakeBinResourcePath(211, "png"), dir + "/dglogo.png");
    EXPECT_EQ(BinRes::ExtractToDisk("Png", 211, "ignored"), dir + "/dglogo.png");
    EXPECT_TRUE(BinRes::GetResourcePath("png", "missing").isNull());
    EXPECT_TRUE(BinRes::GetResourcePath("png", "stop").isNull());
    EXPECT_TRUE(MakeBinResourcePath(1, "png").isNull());
    EXPECT_TRUE(GetResourcePathNS("png", QString()).isNull());
    EXPECT_TRUE(BinRes::ExtractToDisk("png", 1, "").isNull());
}

TEST_F(Resources, ExtractionReadsTheWholeFile) {
    const QByteArray expected = png(3, 2, Qt::red);
    int size = -1;
    void* data = BinRes::ExtractBinResource("png", 211, size);
    ASSERT_NE(data, nullptr);
    ASSERT_EQ(size, expected.size());
    EXPECT_EQ(std::memcmp(data, expected.constData(), size), 0);
    std::free(data);
    data = BinRes::ExtractBinResource("png", "clear", size);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(size, 12);
    std::free(data);
    data = BinRes::ExtractBinResource("xpm", 235, size);  // empty file
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(size, 0);
    std::free(data);
    size = -7;
    EXPECT_EQ(BinRes::ExtractBinResource("png", 12345, size), nullptr);
    EXPECT_EQ(BinRes::ExtractBinResource("png", "missing", size), nullptr);
    EXPECT_EQ(size, -7);
}

TEST_F(Resources, PixmapsAreDecodedFromTheirContent) {
    ensureGuiApp();
    QPixmap pixmap = BinRes::ExtractPixmap("png", 211);
    ASSERT_FALSE(pixmap.isNull());
    EXPECT_EQ(pixmap.size(), QSize(3, 2));
    EXPECT_EQ(pixmap.toImage().pixelColor(2, 1), QColor(Qt::red));
    // The format comes from the bytes, not the type: a PNG filed as .gif still decodes.
    writeFile(dir + "/overlay.gif", png(5, 4, Qt::blue));
    pixmap = BinRes::ExtractPixmap("gif", "overlay");
    EXPECT_EQ(pixmap.size(), QSize(5, 4));
    EXPECT_TRUE(BinRes::ExtractPixmap("png", 550).isNull());  // "clear" is not an image
    EXPECT_TRUE(BinRes::ExtractPixmap("png", 9999).isNull());
    EXPECT_TRUE(BinRes::ExtractPixmap("png", "missing").isNull());
}

// Locale folders ---------------------------------------------------------------------------

class LocaleFolders : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    void SetUp() override {
        std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
        s->setValue("Locale/preferred", QStringList{"fr_CA", "en"});
    }
    void TearDown() override {
        std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
        s->remove("Locale/preferred");
    }
    QString put(const QString& relative) {
        writeFile(tmp.path() + "/" + relative, relative.toUtf8());
        return tmp.path() + "/" + relative;
    }
    QString search() {
        return BinRes::SearchLocaleDirsForResource("html", "help", tmp.path(), "lproj");
    }
};

TEST_F(LocaleFolders, LanguageOfTheFirstLocaleBeforeTheNextLocale) {
    const QString en = put("en.lproj/help.html");
    EXPECT_EQ(search(), en);
    const QString fr = put("fr.lproj/help.html");
    EXPECT_EQ(search(), fr);
    const QString frCA = put("fr_CA.lproj/help.html");
    EXPECT_EQ(search(), frCA);
    const QString plain = put("help.html");
    EXPECT_EQ(search(), plain);
}

TEST_F(LocaleFolders, NothingFoundIsEmpty) {
    put("de.lproj/help.html");
    put("en.lproj/help.txt");
    put("en.strings/help.html");
    const QString found = search();
    EXPECT_TRUE(found.isEmpty());
    EXPECT_FALSE(found.isNull());
    // A locale without a region finds its own folder.
    std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
    s->setValue("Locale/preferred", QStringList{"de"});
    EXPECT_EQ(search(), tmp.path() + "/de.lproj/help.html");
}

TEST(ResourceStyle, FlagIsKept) {
    EXPECT_FALSE(BinRes::useMirelStyle());
    BinRes::setUseMirelStyle(true);
    EXPECT_TRUE(BinRes::useMirelStyle());
    BinRes::setUseMirelStyle(false);
    EXPECT_FALSE(BinRes::useMirelStyle());
    BinRes::cleanup();
}

}  // namespace
}  // namespace mirel
