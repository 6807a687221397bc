#include "OutputFile.h"

#include "Session.h"

#include <algorithm>
#include <filesystem>
#include <glib.h>
#include <system_error>

bool writeOutputFile(std::string const& path, std::vector<std::string> const& inputs,
    std::span<std::uint8_t const> bytes, Session& session)
{
    bool const isInput = std::ranges::any_of(inputs, [&path](std::string const& input) {
        std::error_code ignored; // A path that does not exist yet is another file.
        return std::filesystem::equivalent(path, input, ignored);
    });
    if (isInput) {
        session.reportError(path, "is the input itself");
        return false;
    }
    constexpr int readableByAll = 0666; // As far as the user's mask lets it.
    GError* error = nullptr;
    if (g_file_set_contents_full(path.c_str(), reinterpret_cast<char const*>(bytes.data()),
            static_cast<gssize>(bytes.size()), G_FILE_SET_CONTENTS_CONSISTENT, readableByAll,
            &error))
        return true;
    session.reportError(path, error->message);
    g_error_free(error);
    return false;
}
