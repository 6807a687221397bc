#pragma once

#include "support/Builders.h"

#include <glib.h>

#include <string>

/// Entries of the thumbnail folder that the programs of a desktop share (freedesktop.org, Thumbnail
/// Managing Standard).
namespace shared_thumbnails {

/// The address of the file at an absolute path.
inline std::string addressOf(std::string const& path)
{
    gchar* const address = g_filename_to_uri(path.c_str(), nullptr, nullptr);
    std::string copy = address;
    g_free(address);
    return copy;
}

/// The name that a thumbnail of the file has in the folder for its size.
inline std::string nameFor(std::string const& path)
{
    gchar* const digest
        = g_compute_checksum_for_string(G_CHECKSUM_MD5, addressOf(path).c_str(), -1);
    std::string name = digest + std::string(".png");
    g_free(digest);
    return name;
}

inline build::Bytes textChunk(std::string const& key, std::string const& value)
{
    return build::pngChunk("tEXt", build::join(build::text(key), build::u8(0), build::text(value)));
}

/// The PNG file with more chunks after its header chunk.
inline build::Bytes withChunks(build::Bytes const& png, std::vector<build::Bytes> const& chunks)
{
    auto const afterHeader = png.begin() + 33;
    return build::join(build::Bytes(png.begin(), afterHeader), build::concatenated(chunks),
        build::Bytes(afterHeader, png.end()));
}

}
