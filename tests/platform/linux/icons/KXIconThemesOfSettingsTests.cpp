// The settings that name the theme, which GLib reads once in a process.

#include "kxmd/platform/linux/icons/KXIconThemesPrivate.h"

#include "support/Files.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace files = std::filesystem;

namespace {

/// Has a process of its own find the icon of folders in a home folder, with two themes to choose
/// from; ends it with the status 0 if it is found in that theme.
[[noreturn]] void findInTheme(
    std::string const& expected, std::function<void(files::path const&)> const& writeSettings)
{
    ::alarm(20); // It must not wait for whoever holds the other end of a pipe.
    bool isFound = false;
    {
        TemporaryFolder const home;
        for (char const* name :
            { "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_DATA_DIRS", "HOME", "GSETTINGS_SCHEMA_DIR" })
            ::setenv(name, home.path().c_str(), 1);
        ::setenv("GSETTINGS_BACKEND", "memory", 1); // Everything is as the schema has it.
        for (char const* theme : { "Adwaita", "Chosen" }) {
            std::string const folder = std::string("icons/") + theme;
            files::create_directories(home.path() / folder / "16");
            home.write(folder + "/index.theme",
                build::text("[Icon Theme]\nDirectories=16\n[16]\nSize=16\n"));
            home.write(folder + "/16/folder.png", {});
        }
        writeSettings(home.path());
        std::string const path
            = KXIconThemes(KXIconThemes::Places::ofThisMachine()).pathOfIcon({ "folder" }, 16);
        isFound = path == home.path() / "icons" / expected / "16/folder.png";
    }
    ::_exit(isFound ? 0 : 1);
}

void writeSettingsOfToolkit(files::path const& home, std::string const& settings)
{
    files::create_directories(home / "gtk-3.0");
    std::ofstream(home / "gtk-3.0/settings.ini") << settings;
}

/// The settings of a desktop where a key has the value "Chosen".
void writeSchemaOfDesktop(files::path const& home, std::string const& key)
{
    std::ofstream(home / "a.gschema.xml")
        << "<schemalist><schema id='org.gnome.desktop.interface' path='/a/'><key name='" << key
        << "' type='s'><default>'Chosen'</default></key></schema></schemalist>";
    std::string const command = "glib-compile-schemas " + home.string();
    ASSERT_EQ(std::system(command.c_str()), 0);
}

class KXIconThemesOfSettingsDeathTest : public testing::Test {
protected:
    KXIconThemesOfSettingsDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

}

TEST(KXIconThemesOfSettings, IconsLieInTheFoldersOfTheDesktop)
{
    std::vector<std::string> expected { std::string(g_get_home_dir()) + "/.icons",
        std::string(g_get_user_data_dir()) + "/icons" };
    for (char const* const* folder = g_get_system_data_dirs(); *folder; ++folder)
        expected.push_back(std::string(*folder) + "/icons");
    expected.push_back("/usr/share/pixmaps");
    EXPECT_EQ(KXIconThemes::Places::ofThisMachine().baseFolders, expected);
}

TEST_F(KXIconThemesOfSettingsDeathTest, WithoutAnyItIsAdwaita)
{
    EXPECT_EXIT(findInTheme("Adwaita", [](auto const&) {}), testing::ExitedWithCode(0), "");
}

TEST_F(KXIconThemesOfSettingsDeathTest, ToolkitNamesTheTheme)
{
    auto const write = [](files::path const& home) {
        writeSettingsOfToolkit(home, "[Settings]\ngtk-icon-theme-name=Chosen\n");
    };
    EXPECT_EXIT(findInTheme("Chosen", write), testing::ExitedWithCode(0), "");
}

TEST_F(KXIconThemesOfSettingsDeathTest, ToolkitMayNameNoTheme)
{
    for (std::string const settings : { "", "[Settings]\n", "[", "[Settings]\nother=Chosen\n" }) {
        auto const write = [&](files::path const& home) { writeSettingsOfToolkit(home, settings); };
        EXPECT_EXIT(findInTheme("Adwaita", write), testing::ExitedWithCode(0), "") << settings;
    }
}

TEST_F(KXIconThemesOfSettingsDeathTest, SettingsThatAreAPipeAreNotWaitedFor)
{
    auto const write = [](files::path const& home) {
        files::create_directories(home / "gtk-3.0");
        ASSERT_EQ(::mkfifo((home / "gtk-3.0/settings.ini").c_str(), 0600), 0);
    };
    EXPECT_EXIT(findInTheme("Adwaita", write), testing::ExitedWithCode(0), "");
}

TEST_F(KXIconThemesOfSettingsDeathTest, DesktopNamesTheThemeBeforeTheToolkit)
{
    auto const write = [](files::path const& home) {
        writeSchemaOfDesktop(home, "icon-theme");
        writeSettingsOfToolkit(home, "[Settings]\ngtk-icon-theme-name=Adwaita\n");
    };
    EXPECT_EXIT(findInTheme("Chosen", write), testing::ExitedWithCode(0), "");
}

TEST_F(KXIconThemesOfSettingsDeathTest, DesktopMayHaveNoSuchKey)
{
    auto const write = [](files::path const& home) { writeSchemaOfDesktop(home, "other"); };
    EXPECT_EXIT(findInTheme("Adwaita", write), testing::ExitedWithCode(0), "");
}
