#pragma once

#include <kxmd/base/KXData.h>
#include <kxmd/image/KXImage.h>

#include <CLI/App.hpp>

#include <string>
#include <vector>

class Session;

/// What there is to say of a file without a picture.
constexpr char const* nothingToShow = "has nothing to show";

/// What a picture is written as: PNG or JPEG by the extension of the name, or PNG whatever the
/// name.
enum class PictureFormat { byName, png };

/// The file that a subcommand writes its picture to. Any other extension than those of PNG and JPEG
/// is wrong usage.
CLI::Option* addPictureOutput(CLI::App& command, std::string& path);

/// The same for a subcommand with --png as well, which sets `format` and allows any name.
CLI::Option* addPictureOutput(CLI::App& command, std::string& path, PictureFormat& format);

/// `image` in a format; empty when it cannot be encoded. Safe on any thread.
KXData encodedPicture(
    KXImage const& image, std::string const& path, PictureFormat format = PictureFormat::byName);

/// Writes `image`, which was made from the files `inputs`, to `path`. Reports what goes wrong; a
/// null picture means that the first input has nothing to show. False then.
bool writePicture(KXImage::Ref const& image, std::string const& path,
    std::vector<std::string> const& inputs, Session& session,
    PictureFormat format = PictureFormat::byName);
