#pragma once

#include <kxmd/base/KXGuarded.h>
#include <kxmd/platform/KXPlatform.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

/// The pictures that lie beside music and stand for its album. Looks into each folder once, at
/// most. Safe on several threads.
class FolderPictures {
public:
    explicit FolderPictures(KXPlatform::Ref platform);

    /// Saves a look into a folder that is known to hold these names.
    void noteFolder(std::string const& folder, std::vector<std::string> const& names);

    /// The path of the best picture for the file at `path`, of an album of that name, that can be
    /// shown; empty when there is none.
    ///
    /// It is called "cover", "folder", "front", "albumart…", as the folder, or as the album, in
    /// this order, and lies beside the file, or above the folder of a disc.
    std::string pictureFor(std::string const& path, std::string const& album);

    /// Names, sizes and times of all pictures that were looked at for that: with another text the
    /// answer may be another one.
    std::string stateFor(std::string const& path, std::string const& album);

private:
    struct Picture {
        std::string path;
        std::string state;
    };
    using Pictures = std::vector<Picture>;
    using Names = std::vector<std::string>;

    Pictures picturesFor(std::string const& folder, std::string const& album);
    Names namesIn(std::string const& folder);
    Pictures picturesIn(std::string const& folder, std::string const& album);
    bool canBeShown(std::string const& path);

    KXPlatform::Ref const _platform;
    KXGuarded<std::map<std::string, Names>> _names; // Of pictures, by folder.
    KXGuarded<std::map<std::pair<std::string, std::string>, Pictures>>
        _pictures; // By folder and album.
    KXGuarded<std::map<std::string, bool>> _canBeShown; // By path.
};
