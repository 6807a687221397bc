// Gives every file among the arguments, and in folders among them, to the fuzz target.

#include "FuzzTarget.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace files = std::filesystem;

namespace {

void replay(files::path const& path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<char> const bytes(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
}

}

int main(int argumentCount, char** arguments)
{
    std::size_t replayed = 0;
    for (int i = 1; i < argumentCount; ++i) {
        if (!files::is_directory(arguments[i])) {
            replay(arguments[i]);
            ++replayed;
            continue;
        }
        for (auto const& entry : files::recursive_directory_iterator(arguments[i])) {
            if (!entry.is_regular_file())
                continue;
            replay(entry.path());
            ++replayed;
        }
    }
    std::printf("%zu inputs replayed\n", replayed);
    return replayed ? 0 : 1; // Without inputs nothing was tested.
}
