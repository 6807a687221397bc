#include "kxmd/platform/linux/system/KXGLibTemporaryFoldersPrivate.h"

#include <glib.h>
#include <glib/gstdio.h>

namespace {

constexpr int onlyForTheUser = 0700;

}

std::string KXGLibTemporaryFolders::applicationTempFolder() const
{
    return std::string(g_get_user_cache_dir()) + "/kxmd/tmp";
}

std::string KXGLibTemporaryFolders::applicationUniqueTempFolderWithPrefix(
    std::string_view prefix) const
{
    std::string const parent = applicationTempFolder();
    g_mkdir_with_parents(parent.c_str(), onlyForTheUser); // Where it fails, so does what follows.
    std::string path = parent + '/' + std::string(prefix) + "-XXXXXX";
    return g_mkdtemp_full(path.data(), onlyForTheUser) ? path : std::string();
}
