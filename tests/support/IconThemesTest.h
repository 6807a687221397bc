#pragma once

#include "kxmd/platform/KXPlatform.h"
#include "kxmd/platform/linux/icons/KXIconThemesPrivate.h"
#include "support/Files.h"
#include "support/Pictures.h"
#include "support/Renders.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// Tests of icon themes in two base folders, "user" and "system".
class IconThemesTest : public testing::Test {
protected:
    /// Makes a theme in the base folder `base`.
    void theme(std::string const& base, std::string const& name, std::string const& index) const
    {
        std::filesystem::create_directories(folder.path() / base / name);
        folder.write(base + "/" + name + "/index.theme", build::text(index));
    }

    /// Puts an icon of one colour somewhere below the base folders.
    void icon(std::string const& name, pictures::Colour colour = pictures::red,
        std::size_t size = 8) const
    {
        std::filesystem::create_directories((folder.path() / name).parent_path());
        auto const data = loader->pngRepresentation(*pictures::solid(size, size, colour));
        folder.write(name, build::Bytes(data.bytes().begin(), data.bytes().end()));
    }

    KXIconThemes::Places places(std::vector<std::string> themes = { "mine" }) const
    {
        return { { (folder.path() / "user").string(), (folder.path() / "system").string() },
            std::move(themes) };
    }

    /// Where the icon lies, below the folder of this test.
    std::string found(std::vector<std::string> const& names, int size,
        std::vector<std::string> themes = { "mine" }) const
    {
        std::string const path = KXIconThemes(places(std::move(themes))).pathOfIcon(names, size);
        return path.empty() ? path : std::filesystem::relative(path, folder.path()).string();
    }

    static std::string directories(std::string const& names)
    {
        return "[Icon Theme]\nDirectories=" + names + "\n";
    }
    static std::string directory(std::string const& name, std::string const& lines)
    {
        return "[" + name + "]\n" + lines + "\n";
    }

    TemporaryFolder const folder;
    std::shared_ptr<KXRenderPictureLoader const> const loader = rendersOfThisMachine();
};
