#include "kxmd/platform/linux/icons/KXIconThemesPrivate.h"

#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"

#include <gio/gio.h>
#include <memory>
#include <set>
#include <utility>

namespace {

constexpr std::size_t mostThemes = 64;
constexpr char const* themeOfLastResort = "hicolor";

struct UnreferenceSchema {
    void operator()(GSettingsSchema* schema) const { g_settings_schema_unref(schema); }
};
struct FreeKeyFile {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
};

/// The theme in the settings of the desktop; empty where these have no such key.
std::string themeOfDesktop()
{
    constexpr char const* settingsName = "org.gnome.desktop.interface";
    constexpr char const* key = "icon-theme";
    GSettingsSchemaSource* const source = g_settings_schema_source_get_default(); // Not owned.
    std::unique_ptr<GSettingsSchema, UnreferenceSchema> const schema(
        source ? g_settings_schema_source_lookup(source, settingsName, TRUE) : nullptr);
    // GLib aborts when asked for a missing key.
    if (!schema || !g_settings_schema_has_key(schema.get(), key))
        return {};
    GObjectRef<GSettings> const settings(g_settings_new_full(schema.get(), nullptr, nullptr));
    GAllocated<gchar> const name(g_settings_get_string(settings.get(), key));
    return name.get();
}

/// The theme in the settings file of GTK; empty without one.
std::string themeOfToolkit()
{
    std::string const path = std::string(g_get_user_config_dir()) + "/gtk-3.0/settings.ini";
    std::unique_ptr<GKeyFile, FreeKeyFile> const file(g_key_file_new());
    if (!isRegularFile(path)
        || !g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, nullptr))
        return {};
    GAllocated<gchar> const name(
        g_key_file_get_string(file.get(), "Settings", "gtk-icon-theme-name", nullptr));
    return name ? name.get() : "";
}

}

KXIconThemes::Places KXIconThemes::Places::ofThisMachine()
{
    Places places;
    places.baseFolders.push_back(std::string(g_get_home_dir()) + "/.icons");
    places.baseFolders.push_back(std::string(g_get_user_data_dir()) + "/icons");
    for (char const* const* folder = g_get_system_data_dirs(); *folder; ++folder)
        places.baseFolders.push_back(std::string(*folder) + "/icons");
    places.baseFolders.push_back("/usr/share/pixmaps");
    return places;
}

KXIconThemes::KXIconThemes(Places places)
    : _places(std::move(places))
{
}

void KXIconThemes::readThemes() const
{
    auto names = _places.themes;
    if (names.empty())
        names = { themeOfDesktop(), themeOfToolkit(), "Adwaita" };
    // Parents come right after their theme and before the next one, each theme once.
    std::vector<std::string> pending(names.rbegin(), names.rend());
    pending.insert(pending.begin(), themeOfLastResort);
    std::set<std::string> seen;
    while (!pending.empty() && _themes.size() < mostThemes) {
        std::string const name = std::move(pending.back());
        pending.pop_back();
        // The last resort is everybody's parent, and comes last all the same.
        if ((name == themeOfLastResort && !pending.empty()) || !seen.insert(name).second)
            continue;
        auto theme = KXIconTheme::themeNamed(name, _places.baseFolders);
        if (!theme)
            continue;
        auto const& parents = theme->parents();
        pending.insert(pending.end(), parents.rbegin(), parents.rend());
        _themes.push_back(std::move(*theme));
    }
}

std::vector<std::string> KXIconThemes::names() const
{
    std::call_once(_isRead, [this] { readThemes(); });
    std::vector<std::string> names;
    for (KXIconTheme const& theme : _themes)
        names.push_back(theme.name());
    return names;
}

std::string KXIconThemes::pathOfIcon(std::vector<std::string> const& names, int size) const
{
    std::call_once(_isRead, [this] { readThemes(); });
    for (auto const& theme : _themes) {
        for (auto const& name : names) {
            if (auto path = theme.pathOfIcon(name, size); !path.empty())
                return path;
        }
    }
    for (auto const& folder : _places.baseFolders) { // Icons of no theme.
        for (auto const& name : names) {
            for (std::string_view const extension : iconExtensions) {
                std::string path = folder + '/' + name + std::string(extension);
                if (isRegularFile(path))
                    return path;
            }
        }
    }
    return {};
}
