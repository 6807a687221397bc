#include "NearestFolder.h"

#include <kxmd/base/KXPath.h>

#include <unistd.h>

std::string nearestFolder(std::string folder)
{
    while (folder != "." && folder != "/" && ::access(folder.c_str(), F_OK) != 0) {
        folder = KXPathByDeletingLastPathComponent(folder);
        if (folder.empty())
            folder = ".";
    }
    return folder;
}
