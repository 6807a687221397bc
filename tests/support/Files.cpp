#include "support/Files.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace files = std::filesystem;

TemporaryFolder::TemporaryFolder()
{
    std::string path = (files::temp_directory_path() / "kxmd-test-XXXXXX").string();
    if (!::mkdtemp(path.data()))
        throw std::runtime_error("no temporary folder");
    _path = path;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    files::remove_all(_path, ignored);
}

std::string TemporaryFolder::write(std::string const& name, build::Bytes const& bytes) const
{
    files::path const path = _path / name;
    std::ofstream file(path, std::ios::binary);
    file.write(
        reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file)
        throw std::runtime_error("cannot write " + path.string());
    return path.string();
}

build::Bytes bytesOfFile(files::path const& path)
{
    std::ifstream file(path, std::ios::binary);
    return build::Bytes(std::istreambuf_iterator<char>(file), {});
}

std::optional<files::path> sampleFolder()
{
    files::path const folder = KXMD_SAMPLES; // The option of the build.
    return files::is_directory(folder) ? std::optional(folder) : std::nullopt;
}

std::vector<files::path> sampleFiles()
{
    std::vector<files::path> paths;
    auto const folder = sampleFolder();
    if (!folder)
        return paths;
    for (auto const& entry : files::recursive_directory_iterator(*folder)) {
        if (entry.is_regular_file() && entry.path().parent_path() != *folder)
            paths.push_back(entry.path());
    }
    std::ranges::sort(paths);
    return paths;
}
