// The system commands as a person meets them: real plug-ins, real resource files, a settings
// store and home of the test's own.
#include <gtest/gtest.h>

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <unistd.h>

#include "base/testing/toolrunner.h"

namespace mirel::testing {
namespace {

using SystemTool = ToolTest;

TEST_F(SystemTool, SysinfoReportsFactsAndFolders) {
    const QJsonObject o = mirel.json({"sysinfo", "--json", "--install-path", "/opt/app"});
    EXPECT_EQ(o["os"]["family"].toInt(), 10);
    EXPECT_TRUE(o["os"]["text"].toString().startsWith("Linux ("));
    EXPECT_EQ(o["processor"]["count"].toInt(), sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_EQ(o["processors"], o["processor"]["count"]) << "the first form's key is kept";
    EXPECT_TRUE(hasFields(o["folders"].toObject(), {{"install", "/opt/app/"},
                                                    {"application", mirel.home() + "/data/Vantor Mirel"},
                                                    {"cache", mirel.home() + "/cache/Vantor Mirel"}}));
    EXPECT_TRUE(QFileInfo(mirel.home() + "/data/Vantor Mirel").isDir());
}

TEST_F(SystemTool, UrlsFollowTheLocale) {
    ToolRun r = mirel({"url", "support", "123", "--locale", "fr_FR"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("answer    https://support.vantor.fr/support/bin/answer.py?answer=123\n"))
        << r.out.toStdString();
    EXPECT_EQ(mirel.json({"url", "localize", "http://www.vantor.com/x", "--locale", "en_GB", "--json"})["url"],
              "http://www.vantor.com/x");
}

TEST_F(SystemTool, PluginsLoadAndResolve) {
    const QJsonObject o =
        mirel.json({"plugin", "testplugin", "mirelTestPluginAnswer", "--install-path", MIREL_PLUGIN_DIR, "--json"});
    EXPECT_EQ(o["file"].toString(), MIREL_PLUGIN_DIR "/libtestplugin.so");
    EXPECT_TRUE(o["symbols"][0]["address"].toString().startsWith("0x"));

    ToolRun r = mirel(
        {"plugin", "sub/subplugin", "mirelTestPluginAnswer", "absentSymbol", "--install-path", MIREL_PLUGIN_DIR});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.out.contains("absentSymbol  not found")) << r.out.toStdString();
    EXPECT_TRUE(r.err.contains("1 of 2 symbols not found")) << r.err.toStdString();

    r = mirel({"plugin", "nosuch", "--install-path", mirel.home()});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains("Failed to load \"" + mirel.home() + "/libnosuch.so\" because"))
        << r.err.toStdString();
}

TEST_F(SystemTool, ResourcesBySizeAndPixels) {
    const QString dir = mirel.home() + "/res";
    // A 2x3 PNG, written out by hand so that the test needs no image library of its own.
    const QByteArray png = QByteArray::fromBase64(
        "iVBORw0KGgoAAAANSUhEUgAAAAIAAAADCAIAAAA2iEnWAAAAD0lEQVR42mNg+M8AQigUAD7WBfth7j/dAAAAAElFTkSuQmCC");
    mirel.file("res/fr.lproj/banner.png", png);

    ToolRun r = mirel({"resource", "banner", "png", "--dir", dir, "--locale", "fr_CA"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, dir + "/fr.lproj/banner.png  " + QString::number(png.size()) + " bytes, image 2x3\n");
    for (const QStringList& args : {QStringList{"resource", "9", "png", "--dir", dir},
                                    QStringList{"resource", "banner", "png", "--dir", dir}}) {
        r = mirel(args);
        EXPECT_EQ(r.status, 1) << args.join(' ').toStdString();
        EXPECT_TRUE(r.err.startsWith("mirel: resource: ")) << r.err.toStdString();
    }
}

}  // namespace
}  // namespace mirel::testing
