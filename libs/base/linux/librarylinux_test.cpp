// Real plug-ins built by the test suite, loaded through Library.
#include "base/system/library.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>

#include "base/system/system.h"

namespace mirel {
namespace {

using Answer = int (*)();

int call(const Library& lib, const char* symbol = "mirelTestPluginAnswer") {
    auto f = reinterpret_cast<Answer>(lib.resolve(symbol));
    return f != nullptr ? f() : -1;
}

class Plugins : public ::testing::Test {
protected:
    void SetUp() override { System::setInstallPath(MIREL_PLUGIN_DIR); }
};

// Names are trusted: ".." leaves the install folder.
TEST_F(Plugins, FilePathsComposeAsTheyAlwaysHave) {
    System::setInstallPath("/opt/app");
    struct Row {
        const char *name, *path, *base, *file;
    };
    for (const Row& row : {Row{"foo", "/opt/app/", "foo", "/opt/app/libfoo.so"},
                           Row{"sub/foo", "/opt/app/sub", "/foo", "/opt/app/sublib/foo.so"},
                           Row{"a/b/foo", "/opt/app/a/b", "/foo", "/opt/app/a/blib/foo.so"},
                           Row{"/abs", "/opt/app/", "/abs", "/opt/app/lib/abs.so"},
                           Row{"../x/foo", "/opt/app/../x", "/foo", "/opt/app/../xlib/foo.so"}}) {
        Library lib(row.name);
        QString path, base;
        lib.calculatePathAndBaseName(path, base);
        EXPECT_EQ(path + "|" + base + "|" + lib.getFilePath(), QString("%1|%2|%3").arg(row.path, row.base, row.file));
    }
}

TEST_F(Plugins, LoadResolveUnloadReload) {
    Library lib("testplugin");
    EXPECT_FALSE(lib.unload());
    EXPECT_EQ(lib.resolve("mirelTestPluginAnswer"), nullptr);
    ASSERT_TRUE(lib.load());
    EXPECT_FALSE(lib.load());  // already loaded: no second handle
    EXPECT_EQ(call(lib), 42);
    EXPECT_EQ(lib.resolve("mirelTestNoSuchSymbol"), nullptr);
    // Loaded with global symbols: the whole process sees them.
    EXPECT_NE(dlsym(RTLD_DEFAULT, "mirelTestPluginAnswer"), nullptr);
    EXPECT_TRUE(lib.unload());
    EXPECT_FALSE(lib.isLoaded());
    EXPECT_EQ(lib.resolve("mirelTestPluginAnswer"), nullptr);
    ASSERT_TRUE(lib.load());
    EXPECT_TRUE(lib.unload());

    // Destroying a Library leaves its library mapped.
    Answer kept = nullptr;
    {
        Library scoped("testplugin");
        ASSERT_TRUE(scoped.load());
        kept = reinterpret_cast<Answer>(scoped.resolve("mirelTestPluginAnswer"));
    }
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept(), 42);
}

TEST_F(Plugins, FolderPartOfTheNameAndLazyBinding) {
    Library sub("sub/subplugin");
    ASSERT_TRUE(sub.load()) << sub.getFilePath().toStdString();
    EXPECT_EQ(call(sub), 43);
    // Refers to a function defined nowhere; only lazy binding lets it load.
    Library lazy("lazyplugin");
    EXPECT_TRUE(lazy.load());
    EXPECT_NE(lazy.resolve("mirelTestCallsTheUndefined"), nullptr);
}

TEST_F(Plugins, FailuresAndTheEmptyName) {
    Library missing("nosuchplugin");
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(missing.load());
    const std::string err = ::testing::internal::GetCapturedStderr();
    const std::string file = MIREL_PLUGIN_DIR "/libnosuchplugin.so";
    EXPECT_EQ(err.rfind("Failed to load \"" + file + "\" because \"" + file + ": cannot open", 0), 0u) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
    EXPECT_TRUE(err.ends_with("\"\n")) << err;
    EXPECT_FALSE(missing.isLoaded());

    Library empty("");
    EXPECT_TRUE(empty.load());
    EXPECT_TRUE(empty.load());  // no handle to protect: marked again
    EXPECT_EQ(empty.resolve("mirelTestPluginAnswer"), nullptr);
    EXPECT_FALSE(empty.unload());  // nothing was opened
}

}  // namespace
}  // namespace mirel
