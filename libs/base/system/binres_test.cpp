// Resource look-up on a real resource tree with locale folders, and real images decoded.
#include "base/system/binres.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QSettings>
#include <QTemporaryDir>

#include <memory>

#include "base/system/system.h"
#include "base/testing/files.h"
#include "base/testing/tempenv.h"
#include "base/version/versioninfo.h"

namespace mirel {
namespace {

const QString gHome = testing::temporaryHome();

void put(const QString& path, const QByteArray& data) {
    QDir().mkpath(QFileInfo(path).path());
    testing::writeFile(path, data);
}

QByteArray png(int w, int h) {
    QImage image(w, h, QImage::Format_ARGB32);
    image.fill(Qt::red);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

TEST(ResourceNames, FirstMatchingRowWins) {
    EXPECT_STREQ(FindResName(211), "dglogo");
    EXPECT_STREQ(FindResName(550), "clear");
    EXPECT_STREQ(FindResName(638), "streamed_layers");
    EXPECT_STREQ(FindResName(521), "cursor_hand_open");
    EXPECT_EQ(FindResName(0), nullptr);
    long ids = 0;
    for (const ResIDName& row : resIDNameMap) ids += row.id;
    EXPECT_EQ(ids, 39898);  // the sum of all 62 numbers: a lost or mistyped row shows
}

class Resources : public ::testing::Test {
protected:
    QTemporaryDir tmp;
    QString dir;
    void SetUp() override {
        dir = tmp.path() + "/res";
        BinRes::setResourceDirectory(dir);
        put(dir + "/dglogo.png", png(3, 2));
        put(dir + "/clear.png", "not an image");
        QDir().mkpath(dir + "/stop.png");  // a folder is no resource
    }
    void TearDown() override { BinRes::setResourceDirectory(QString()); }
};

TEST_F(Resources, PathsByNameAndNumber) {
    EXPECT_EQ(BinRes::GetResourcePath("PNG", "dglogo"), dir + "/dglogo.png");
    EXPECT_EQ(BinRes::ExtractToDisk("Png", 211, "ignored"), dir + "/dglogo.png");
    EXPECT_TRUE(BinRes::GetResourcePath("png", "missing").isNull());
    EXPECT_TRUE(BinRes::GetResourcePath("png", "stop").isNull());
    EXPECT_TRUE(MakeBinResourcePath(1, "png").isNull());
    BinRes::setResourceDirectory(QString());
    System::setInstallPath("/opt/app");
    EXPECT_EQ(BinRes::getResourceDirectory(), "/opt/app/resources/");
}

TEST_F(Resources, ExtractedAsPixmapsOrNothing) {
    int size = -7;
    EXPECT_EQ(BinRes::ExtractBinResource("png", 12345, size), nullptr);
    EXPECT_EQ(BinRes::ExtractBinResource("png", "missing", size), nullptr);
    EXPECT_EQ(size, -7);

    static int argc = 1;
    static char name[] = "binres_test";
    static char* argv[] = {name, nullptr};
    if (QCoreApplication::instance() == nullptr) new QGuiApplication(argc, argv);
    const QPixmap pixmap = BinRes::ExtractPixmap("png", 211);
    EXPECT_EQ(pixmap.size(), QSize(3, 2));
    EXPECT_EQ(pixmap.toImage().pixelColor(2, 1), QColor(Qt::red));
    // The format comes from the bytes, not the type.
    put(dir + "/overlay.gif", png(5, 4));
    EXPECT_EQ(BinRes::ExtractPixmap("gif", "overlay").size(), QSize(5, 4));
    EXPECT_TRUE(BinRes::ExtractPixmap("png", "clear").isNull());
    EXPECT_TRUE(BinRes::ExtractPixmap("png", 9999).isNull());
}

TEST(LocaleFolders, LanguageOfTheFirstLocaleBeforeTheNextLocale) {
    std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
    s->setValue("Locale/preferred", QStringList{"fr_CA", "en"});
    s->sync();
    QTemporaryDir tmp;
    auto search = [&] { return BinRes::SearchLocaleDirsForResource("html", "help", tmp.path(), "lproj"); };
    put(tmp.path() + "/de.lproj/help.html", "");
    put(tmp.path() + "/en.lproj/help.txt", "");
    EXPECT_EQ(search(), "");
    EXPECT_FALSE(search().isNull());
    for (const char* relative : {"en.lproj/help.html", "fr.lproj/help.html", "fr_CA.lproj/help.html",
                                 "help.html"}) {
        put(tmp.path() + "/" + relative, "");
        EXPECT_EQ(search(), tmp.path() + "/" + relative);
    }
    s->remove("Locale/preferred");
}

}  // namespace
}  // namespace mirel
