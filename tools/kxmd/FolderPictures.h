#pragma once

#include <kxmd/base/KXGuarded.h>

#include <map>
#include <string>

/// The pictures that lie beside music and stand for its album. Looks into each folder once. Safe on
/// several threads.
class FolderPictures {
public:
    /// The path of a picture beside the file at `path`: "cover", "folder" or "front", in this
    /// order, as JPEG or PNG, in whatever case; empty when there is none.
    std::string pictureBeside(std::string const& path);

private:
    KXGuarded<std::map<std::string, std::string>> _pictures; // By folder.
};
