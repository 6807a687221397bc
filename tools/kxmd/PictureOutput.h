#pragma once

#include <kxmd/base/KXData.h>
#include <kxmd/image/KXImage.h>

#include <CLI/App.hpp>

#include <string>
#include <vector>

class Session;

/// What there is to say of a file without a picture.
constexpr char const* nothingToShow = "has nothing to show";

/// The file that a subcommand writes its picture to. Any other extension than those of PNG and JPEG
/// is wrong usage.
CLI::Option* addPictureOutput(CLI::App& command, std::string& path);

/// `image` as PNG or JPEG, by the extension of `path`; empty when it cannot be encoded. Safe on any
/// thread.
KXData encodedPicture(KXImage const& image, std::string const& path);

/// Writes `image`, which was made from the files `inputs`, as PNG or JPEG, by the extension of
/// `path`. Reports what goes wrong; a null picture means that the first input has nothing to show.
/// False then.
bool writePicture(KXImage::Ref const& image, std::string const& path,
    std::vector<std::string> const& inputs, Session& session);
