// In place of KXLibraryFolder.cpp where the library is part of a program, whose file tells nothing
// of where the library was installed.

#include "kxmd/platform/KXLibraryFolderPrivate.h"

#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;

/// Where the programs of this version are: beside the running one, if it brought them along, or
/// else where they were to be installed.
fs::path folderOfPrograms()
{
    std::error_code error;
    fs::path const running = fs::read_symlink("/proc/self/exe", error).parent_path();
    fs::path const beside = (running / KXMD_BESIDE_PROGRAMS).lexically_normal();
    bool const areBeside = !error && fs::exists(beside / KXMD_RENDER, error);
    return areBeside ? beside : fs::path(KXMD_LIBRARIES);
}

}

std::string pathBesideLibrary(std::string_view relativePath)
{
    // Never destroyed: queues may still work while the process exits.
    static auto const& folder = *new fs::path(folderOfPrograms());
    return folder / relativePath;
}
