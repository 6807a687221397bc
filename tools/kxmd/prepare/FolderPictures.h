#pragma once

#include <kxmd/base/KXGuarded.h>
#include <kxmd/platform/KXPlatform.h>

#include <map>
#include <string>
#include <vector>

/// The pictures that lie beside music and stand for its album. Looks into each folder once, at
/// most. Safe on several threads.
class FolderPictures {
public:
    explicit FolderPictures(KXPlatform::Ref platform);

    /// Saves a look into a folder that is known to hold these names.
    void noteFolder(std::string const& folder, std::vector<std::string> const& names);

    /// The path of the best picture for the album of the file at `path` that can be shown; empty
    /// when there is none.
    ///
    /// It is called "cover", "folder", "front", "albumart…", or as the folder, in this order, and
    /// lies beside the file, or above the folder of a disc.
    std::string pictureFor(std::string const& path);

    /// Names, sizes and times of all pictures that were looked at for that: with another text the
    /// answer may be another one.
    std::string stateFor(std::string const& path);

private:
    struct Picture {
        std::string path;
        std::string state;
    };
    using Pictures = std::vector<Picture>;

    Pictures picturesFor(std::string const& folder);
    std::vector<std::string> namesIn(std::string const& folder);
    Pictures picturesIn(std::string const& folder);
    bool canBeShown(std::string const& path);

    KXPlatform::Ref const _platform;
    KXGuarded<std::map<std::string, std::vector<std::string>>> _names; // Of pictures, by folder.
    KXGuarded<std::map<std::string, Pictures>> _pictures; // By folder.
    KXGuarded<std::map<std::string, bool>> _canBeShown; // By path.
};
