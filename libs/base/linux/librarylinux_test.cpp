// Real plug-ins built by the test suite, loaded through Library.
#include "base/system/library.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>

#include "base/system/system.h"

namespace mirel {
namespace {

using Answer = int (*)();

class Plugins : public ::testing::Test {
protected:
    void SetUp() override { System::setInstallPath(MIREL_PLUGIN_DIR); }
};

TEST_F(Plugins, FilePathsComposeAsTheyAlwaysHave) {
    System::setInstallPath("/opt/app");
    struct Row {
        const char* name;
        const char* path;
        const char* base;
        const char* file;
    };
    const Row rows[] = {
        {"foo", "/opt/app/", "foo", "/opt/app/libfoo.so"},
        {"sub/foo", "/opt/app/sub", "/foo", "/opt/app/sublib/foo.so"},
        {"a/b/foo", "/opt/app/a/b", "/foo", "/opt/app/a/blib/foo.so"},
        {"/abs", "/opt/app/", "/abs", "/opt/app/lib/abs.so"},
        {"dir/", "/opt/app/dir", "/", "/opt/app/dirlib/.so"},
        {"", "/opt/app/", "", "/opt/app/lib.so"},
    };
    for (const Row& row : rows) {
        Library lib(row.name);
        QString path, base;
        lib.calculatePathAndBaseName(path, base);
        EXPECT_EQ(path, row.path) << row.name;
        EXPECT_EQ(base, row.base) << row.name;
        EXPECT_EQ(lib.getFilePath(), row.file) << row.name;
        EXPECT_EQ(lib.getLibraryName(), row.name);
    }
}

TEST_F(Plugins, LoadResolveUnloadReload) {
    Library lib("testplugin");
    EXPECT_FALSE(lib.isLoaded());
    EXPECT_EQ(lib.resolve("mirelTestPluginAnswer"), nullptr);
    EXPECT_FALSE(lib.unload());

    ASSERT_TRUE(lib.load());
    EXPECT_TRUE(lib.isLoaded());
    EXPECT_FALSE(lib.load());  // already loaded: no second handle
    auto answer = reinterpret_cast<Answer>(lib.resolve("mirelTestPluginAnswer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(lib.resolve("mirelTestNoSuchSymbol"), nullptr);
    EXPECT_EQ(lib.resolve(""), nullptr);
    // Loaded with global symbols: the whole process sees them.
    EXPECT_NE(dlsym(RTLD_DEFAULT, "mirelTestPluginAnswer"), nullptr);

    EXPECT_TRUE(lib.unload());
    EXPECT_FALSE(lib.isLoaded());
    EXPECT_EQ(lib.resolve("mirelTestPluginAnswer"), nullptr);
    EXPECT_FALSE(lib.unload());

    ASSERT_TRUE(lib.load());
    answer = reinterpret_cast<Answer>(lib.resolve("mirelTestPluginAnswer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_TRUE(lib.unload());
}

TEST_F(Plugins, DestroyingLeavesTheLibraryMapped) {
    Answer answer = nullptr;
    {
        Library lib("testplugin");
        ASSERT_TRUE(lib.load());
        answer = reinterpret_cast<Answer>(lib.resolve("mirelTestPluginAnswer"));
    }
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    // Still open: loading it again by path finds the mapped image.
    void* again = dlopen(MIREL_PLUGIN_DIR "/libtestplugin.so", RTLD_LAZY | RTLD_NOLOAD);
    EXPECT_NE(again, nullptr);
    if (again != nullptr) dlclose(again);
}

TEST_F(Plugins, FolderPartOfTheNameAndLazyBinding) {
    Library sub("sub/subplugin");
    ASSERT_TRUE(sub.load()) << sub.getFilePath().toStdString();
    auto answer = reinterpret_cast<Answer>(sub.resolve("mirelTestPluginAnswer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 43);
    EXPECT_TRUE(sub.unload());

    // Refers to a function defined nowhere; only lazy binding lets it load.
    Library lazy("lazyplugin");
    EXPECT_TRUE(lazy.load());
    EXPECT_NE(lazy.resolve("mirelTestCallsTheUndefined"), nullptr);
    lazy.unload();
}

TEST_F(Plugins, MissingLibrarySaysWhyOnStandardError) {
    Library lib("nosuchplugin");
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(lib.load());
    const std::string err = ::testing::internal::GetCapturedStderr();
    const std::string file = MIREL_PLUGIN_DIR "/libnosuchplugin.so";
    EXPECT_EQ(err.rfind("Failed to load \"" + file + "\" because \"", 0), 0u) << err;
    EXPECT_NE(err.find("No such file"), std::string::npos) << err;
    EXPECT_EQ(err.back(), '\n');
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
    EXPECT_FALSE(lib.isLoaded());
    EXPECT_EQ(lib.resolve("mirelTestPluginAnswer"), nullptr);
}

TEST_F(Plugins, EmptyNameIsMarkedLoadedWithNothingToResolve) {
    Library lib("");
    EXPECT_TRUE(lib.load());
    EXPECT_TRUE(lib.isLoaded());
    EXPECT_TRUE(lib.load());  // no handle to protect: marked again
    EXPECT_EQ(lib.resolve("mirelTestPluginAnswer"), nullptr);
    EXPECT_FALSE(lib.unload());  // nothing was opened
    EXPECT_FALSE(lib.isLoaded());
}

// Names are trusted: ".." leaves the install folder. This pins the documented hazard.
TEST_F(Plugins, DotDotInANameLeavesTheInstallFolder) {
    Library lib("../outside/escape");
    EXPECT_EQ(lib.getFilePath(), MIREL_PLUGIN_DIR "/../outsidelib/escape.so");
    ASSERT_TRUE(lib.load());
    auto answer = reinterpret_cast<Answer>(lib.resolve("mirelTestPluginAnswer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 44);
    lib.unload();
}

}  // namespace
}  // namespace mirel
