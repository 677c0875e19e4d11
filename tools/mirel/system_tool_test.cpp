// The system commands as a person meets them: real plug-ins, real resource files, a settings
// store and home of the test's own.
#include <gtest/gtest.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <unistd.h>

namespace {

struct Result {
    int status;
    QString out;
    QString err;
};

class SystemTool : public ::testing::Test {
protected:
    QTemporaryDir home;

    Result mirel(const QStringList& args) {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", home.path());
        env.insert("XDG_CONFIG_HOME", home.path() + "/config");
        env.insert("XDG_DATA_HOME", home.path() + "/data");
        env.insert("XDG_CACHE_HOME", home.path() + "/cache");
        env.insert("QT_QPA_PLATFORM", "offscreen");
        p.setProcessEnvironment(env);
        p.start(MIREL_TOOL_PATH, args);
        EXPECT_TRUE(p.waitForFinished(120000)) << args.join(' ').toStdString();
        return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
                QString::fromUtf8(p.readAllStandardOutput()),
                QString::fromUtf8(p.readAllStandardError())};
    }

    QJsonObject json(const Result& r) {
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(r.out.toUtf8(), &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError) << r.out.toStdString();
        return doc.object();
    }
};

TEST_F(SystemTool, BadInvocationsGiveStatusTwo) {
    const QList<QStringList> cases = {
        {"url"}, {"url", "frob"}, {"url", "support", "twelve"}, {"url", "localize"},
        {"plugin"}, {"resource", "211"}, {"resource", "211", ""}, {"sysinfo", "stray"},
    };
    for (const QStringList& args : cases) {
        const Result r = mirel(args);
        EXPECT_EQ(r.status, 2) << args.join(' ').toStdString() << "\n" << r.err.toStdString();
        EXPECT_TRUE(r.err.startsWith("mirel: ")) << r.err.toStdString();
        EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
    }
}

TEST_F(SystemTool, SysinfoReportsFactsAndFolders) {
    const Result r = mirel({"sysinfo", "--json", "--install-path", "/opt/app"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QJsonObject o = json(r);
    EXPECT_EQ(o["os"].toObject()["family"].toInt(), 10);
    EXPECT_TRUE(o["os"].toObject()["text"].toString().startsWith("Linux ("));
    EXPECT_EQ(o["processor"].toObject()["count"].toInt(), sysconf(_SC_NPROCESSORS_ONLN));
    const QJsonObject folders = o["folders"].toObject();
    EXPECT_EQ(folders["install"].toString(), "/opt/app/");
    EXPECT_EQ(folders["application"].toString(), home.path() + "/data/Vantor Mirel");
    EXPECT_EQ(folders["cache"].toString(), home.path() + "/cache/Vantor Mirel");
    EXPECT_TRUE(QFileInfo(home.path() + "/data/Vantor Mirel").isDir());
}

TEST_F(SystemTool, UrlsFollowTheLocale) {
    Result r = mirel({"url", "support", "123", "--locale", "fr_FR"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("answer    https://support.vantor.fr/support/bin/answer.py?answer=123\n"))
        << r.out.toStdString();
    r = mirel({"url", "localize", "http://www.vantor.com/x", "--locale", "en_GB", "--json"});
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(json(r)["url"].toString(), "http://www.vantor.com/x");
}

TEST_F(SystemTool, PluginsLoadAndResolve) {
    Result r = mirel({"plugin", "testplugin", "mirelTestPluginAnswer", "--install-path", MIREL_PLUGIN_DIR,
                      "--json"});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const QJsonObject o = json(r);
    EXPECT_EQ(o["file"].toString(), MIREL_PLUGIN_DIR "/libtestplugin.so");
    EXPECT_TRUE(o["symbols"].toArray()[0].toObject()["address"].toString().startsWith("0x"));

    r = mirel({"plugin", "sub/subplugin", "mirelTestPluginAnswer", "absentSymbol", "--install-path",
               MIREL_PLUGIN_DIR});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.out.contains("absentSymbol  not found")) << r.out.toStdString();
    EXPECT_TRUE(r.err.contains("1 of 2 symbols not found")) << r.err.toStdString();

    r = mirel({"plugin", "nosuch", "--install-path", home.path()});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains("Failed to load \"" + home.path() + "/libnosuch.so\" because"))
        << r.err.toStdString();
}

TEST_F(SystemTool, ResourcesBySizeAndPixels) {
    const QString dir = home.path() + "/res";
    QDir().mkpath(dir + "/fr.lproj");
    QFile png(dir + "/fr.lproj/banner.png");
    ASSERT_TRUE(png.open(QIODevice::WriteOnly));
    // A 2x3 PNG, written out by hand so that the test needs no image library of its own.
    png.write(QByteArray::fromBase64("iVBORw0KGgoAAAANSUhEUgAAAAIAAAADCAIAAAA2iEnWAAAAD0lEQVR42mNg+M8AQigUAD7WBfth7j/dAAAAAElFTkSuQmCC"));
    png.close();

    Result r = mirel({"resource", "banner", "png", "--dir", dir, "--locale", "fr_CA"});
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
