#include <vellib/vellibrary.h>

#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/eachfailure.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_function.h"
#include "support/tempdir.h"

using support::asserts;
using support::log_line;

using log_lines = std::vector<log_line>;

/* ---- what the library asks of the platform ---- */

static std::vector<int> flags;
static bool watching;
static int closed;
static bool closefails;

extern "C" {

/* Defined for its flags: the platform gives no way to ask for them afterwards. */
void *dlopen(const char *filename, int mode) noexcept
{
    if (watching)
        flags.push_back(mode);
    return support::platform_function<void *(const char *, int)>("dlopen")(filename, mode);
}

int dlclose(void *handle) noexcept
{
    const int result = support::platform_function<int(void *)>("dlclose")(handle);
    closed += watching;
    return closefails ? -1 : result;
}

} // extern "C"

/* The plug-ins stand beside this program. */
static std::string plugin(const char *name)
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

class Vellibrary : public testing::Test {
  protected:
    void SetUp() override
    {
        flags.clear();
        closed = 0;
        watching = true;
    }
    void TearDown() override
    {
        watching = false;
        closefails = false;
        EXPECT_EQ(log.take(), (log_lines{}));
    }

    support::log_capture log;
    std::string name = plugin("vellibrary_plugin.so");
};

TEST_F(Vellibrary, FindsFunctionsAndData)
{
    vellibrary *library = vel_library_create(name.c_str());
    ASSERT_NE(library, nullptr);
    const auto add =
        reinterpret_cast<int (*)(int, int)>(vel_library_function(library, "plugin_add"));
    ASSERT_NE(add, nullptr);
    EXPECT_EQ(add(3, 4), 7);
    int *number = static_cast<int *>(vel_library_data(library, "plugin_number"));
    ASSERT_NE(number, nullptr);
    EXPECT_EQ(*number, 4711);
    vel_library_destroy(library);
}

TEST_F(Vellibrary, BothLookUpAnyName)
{
    vellibrary *library = vel_library_create(name.c_str());
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(reinterpret_cast<void *>(vel_library_function(library, "plugin_number")),
              vel_library_data(library, "plugin_number"));
    EXPECT_EQ(reinterpret_cast<void *>(vel_library_function(library, "plugin_add")),
              vel_library_data(library, "plugin_add"));
    EXPECT_NE(vel_library_data(library, "plugin_add"), nullptr);
    vel_library_destroy(library);
}

TEST_F(Vellibrary, UnknownSymbolsAreNull)
{
    vellibrary *library = vel_library_create(name.c_str());
    ASSERT_NE(library, nullptr);
    for (const char *symbol : {"", "plugin_nothing", "unloaded", "plugin_unload"}) {
        EXPECT_EQ(vel_library_function(library, symbol), nullptr) << symbol;
        EXPECT_EQ(vel_library_data(library, symbol), nullptr) << symbol;
    }
    vel_library_destroy(library);
}

TEST_F(Vellibrary, DestroyUnloads)
{
    vellibrary *library = vel_library_create(name.c_str());
    ASSERT_NE(library, nullptr);
    int unloaded = 0;
    reinterpret_cast<void (*)(int *)>(vel_library_function(library, "plugin_watch"))(&unloaded);
    EXPECT_EQ(unloaded, 0);
    vel_library_destroy(library);
    EXPECT_EQ(unloaded, 1);
    EXPECT_EQ(closed, 1);
}

TEST_F(Vellibrary, ResultOfCloseIsIgnored)
{
    vellibrary *library = vel_library_create(name.c_str());
    ASSERT_NE(library, nullptr);
    closefails = true;
    vel_library_destroy(library);
    EXPECT_EQ(closed, 1);
}

TEST_F(Vellibrary, StaysWhileSomebodyHasIt)
{
    vellibrary *first = vel_library_create(name.c_str());
    vellibrary *second = vel_library_create(name.c_str());
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(vel_library_data(first, "plugin_number"), vel_library_data(second, "plugin_number"));
    vel_library_destroy(first);
    EXPECT_EQ(*static_cast<int *>(vel_library_data(second, "plugin_number")), 4711);
    vel_library_destroy(second);
}

TEST_F(Vellibrary, AllIsResolvedAtOnce)
{
    const std::string unresolved = plugin("vellibrary_unresolved.so");
    void *lazily = support::platform_function<void *(const char *, int)>("dlopen")(
        unresolved.c_str(), RTLD_LAZY);
    ASSERT_NE(lazily, nullptr) << "it cannot be loaded at all: " << dlerror();
    dlclose(lazily);

    EXPECT_EQ(vel_library_create(unresolved.c_str()), nullptr);
    EXPECT_EQ(log.take(),
              (log_lines{{"util/vellibrary", 13,
                          "dlopen() for '" + unresolved + "' failed, error " + unresolved +
                              ": undefined symbol: plugin_nobody_has_this"}}));
    EXPECT_EQ(flags, (std::vector<int>{RTLD_NOW}));
}

TEST_F(Vellibrary, FailureTellsTheReason)
{
    const support::temporary_directory temporary;
    support::write_file("text.so", "this is no library");
    for (const char *missing : {"/nowhere/missing.so", "./text.so", "/tmp"}) {
        EXPECT_EQ(vel_library_create(missing), nullptr);
        const log_lines lines = log.take();
        ASSERT_EQ(dlopen(missing, RTLD_NOW), nullptr);
        const std::string reason = dlerror();
        EXPECT_NE(reason.find(missing), std::string::npos);
        EXPECT_EQ(lines, (log_lines{{"util/vellibrary", 13,
                                     std::string("dlopen() for '") + missing + "' failed, error " +
                                         reason}}));
    }
    EXPECT_EQ(closed, 0);
}

TEST_F(Vellibrary, FailedAllocationIsNotLogged)
{
    support::warm_log(log);
    const log_lines lines = support::allocfail_lines(log, [&] {
        flags.clear();
        vellibrary *library = vel_library_create(name.c_str());
        const bool succeeded = library != nullptr;
        if (library)
            vel_library_destroy(library);
        EXPECT_EQ(flags.size(), succeeded ? 1u : 0u) << "the object is made first";
        return succeeded;
    });
    EXPECT_EQ(lines, (log_lines{{"", 0, ""}}));
}

TEST(VellibraryOom, Life)
{
    support::vel_oom_drive([] {
        vellibrary *library = vel_library_create(plugin("vellibrary_plugin.so").c_str());
        if (!library)
            return false;
        EXPECT_NE(vel_library_function(library, "plugin_add"), nullptr);
        vel_library_destroy(library);
        return true;
    });
}

class VellibraryDeathTest : public Vellibrary {};

TEST_F(VellibraryDeathTest, ArgumentsAreAsserted)
{
    EXPECT_DEATH(vel_library_create(nullptr), asserts("filename != NULL", "vel_library_create"));
    EXPECT_DEATH(vel_library_destroy(nullptr),
                 asserts("vellibrary != NULL", "vel_library_destroy"));
    EXPECT_DEATH(vel_library_function(nullptr, nullptr),
                 asserts("vellibrary != NULL", "vel_library_function"));
    EXPECT_DEATH(vel_library_data(nullptr, nullptr),
                 asserts("vellibrary != NULL", "vel_library_data"));

    vellibrary *library = vel_library_create(name.c_str());
    ASSERT_NE(library, nullptr);
    EXPECT_DEATH(vel_library_function(library, nullptr),
                 asserts("symbol != NULL", "vel_library_function"));
    EXPECT_DEATH(vel_library_data(library, nullptr), asserts("symbol != NULL", "vel_library_data"));
    vel_library_destroy(library);
}

/* A handle is the platform's handle alone. */
TEST_F(VellibraryDeathTest, PlatformHandleIsAsserted)
{
    void *handle = nullptr;
    auto *library = reinterpret_cast<vellibrary *>(&handle);
    EXPECT_DEATH(vel_library_function(library, "x"),
                 asserts("vellibrary->handle != NULL", "vel_library_function"));
    EXPECT_DEATH(vel_library_data(library, "x"),
                 asserts("vellibrary->handle != NULL", "vel_library_data"));
}
