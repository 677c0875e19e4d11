// The system commands as a person meets them: real plug-ins, real resource files, a settings
// store and home of the test's own.
#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

#include <unistd.h>

#include "base/testing/toolrunner.h"

namespace mirel::testing {
namespace {

using SystemTool = ToolTest;

TEST_F(SystemTool, SysinfoReportsFactsAndFolders) {
    const QJsonObject o = mirel.json({"sysinfo", "--json", "--install-path", "/opt/app"});
    EXPECT_TRUE(o["os"]["text"].toString().startsWith("Linux ("));
    EXPECT_EQ(o["processors"].toInt(), sysconf(_SC_NPROCESSORS_ONLN)) << "the first form's key is kept";
    EXPECT_TRUE(hasFields(o["folders"].toObject(),
                          {{"install", "/opt/app/"}, {"cache", mirel.home() + "/cache/Vantor Mirel"}}));
}

TEST_F(SystemTool, UrlsFollowTheLocale) {
    ToolRun r = mirel({"url", "support", "123", "--locale", "fr_FR"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("answer    https://support.vantor.fr/support/bin/answer.py?answer=123\n"))
        << r.out.toStdString();
}

TEST_F(SystemTool, PluginsLoadAndResolve) {
    const QJsonObject o =
        mirel.json({"plugin", "testplugin", "mirelTestPluginAnswer", "--install-path", MIREL_PLUGIN_DIR, "--json"});
    EXPECT_EQ(o["file"].toString(), MIREL_PLUGIN_DIR "/libtestplugin.so");

    ToolRun r = mirel(
        {"plugin", "sub/subplugin", "mirelTestPluginAnswer", "absentSymbol", "--install-path", MIREL_PLUGIN_DIR});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains("1 of 2 symbols not found")) << r.err.toStdString();

    EXPECT_EQ(mirel({"plugin", "nosuch", "--install-path", mirel.home()}).status, 1);
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
    EXPECT_EQ(mirel({"resource", "9", "png", "--dir", dir}).status, 1);
    r = mirel({"resource", "banner", "png", "--dir", dir});  // no French locale
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.startsWith("mirel: resource: ")) << r.err.toStdString();
}

}  // namespace
}  // namespace mirel::testing
