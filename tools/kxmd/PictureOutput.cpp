#include "PictureOutput.h"

#include "Desktop.h"
#include "OutputFile.h"
#include "Session.h"
#include "Usage.h"

#include <kxmd/base/KXPath.h>
#include <kxmd/platform/KXPlatform.h>

#include <algorithm>
#include <string_view>
#include <strings.h>

namespace {

struct Format {
    std::string_view extension;
    KXData (KXPictureLoader::*encode)(KXImage const&) const;
};

constexpr Format formats[] {
    { "png", &KXPictureLoader::pngRepresentation },
    { "jpg", &KXPictureLoader::jpgRepresentation },
    { "jpeg", &KXPictureLoader::jpgRepresentation },
};

/// The format that the extension of `path` names, in upper or lower case; null for any other.
Format const* formatOfPath(std::string_view path)
{
    std::string const name(KXLastPathComponent(path));
    std::size_t const stop = name.rfind('.');
    if (stop == std::string::npos)
        return nullptr;
    auto const found = std::ranges::find_if(formats, [&](Format const& format) {
        return ::strcasecmp(name.c_str() + stop + 1, format.extension.data()) == 0;
    });
    return found == std::end(formats) ? nullptr : found;
}

/// `format` is looked at when the name is parsed.
CLI::Option* addOutputInFormat(CLI::App& command, std::string& path, PictureFormat const& format)
{
    auto const take = [&path, &format](std::string const& typed) {
        path = withoutLiteralMark(typed);
        if (format == PictureFormat::byName && !formatOfPath(path))
            throw CLI::ValidationError("-o", "\"" + path + "\" ends in none of .png, .jpg, .jpeg");
    };
    return command
        .add_option_function<std::string>("-o,--output", take, "Write a PNG or JPEG, by name")
        ->type_name("OUT");
}

}

CLI::Option* addPictureOutput(CLI::App& command, std::string& path)
{
    static constexpr auto format = PictureFormat::byName;
    return addOutputInFormat(command, path, format);
}

CLI::Option* addPictureOutput(CLI::App& command, std::string& path, PictureFormat& format)
{
    // Before the name, which is looked at when this is known.
    command.add_flag_callback(
        "--png", [&format] { format = PictureFormat::png; }, "Write a PNG, whatever OUT is called");
    return addOutputInFormat(command, path, format);
}

KXData encodedPicture(KXImage const& image, std::string const& path, PictureFormat format)
{
    auto const encode = format == PictureFormat::png ? &KXPictureLoader::pngRepresentation
                                                     : formatOfPath(path)->encode;
    return ((*machine()->pictureLoader).*encode)(image);
}

bool writePicture(KXImage::Ref const& image, std::string const& path,
    std::vector<std::string> const& inputs, Session& session, PictureFormat format)
{
    if (!image) {
        session.reportError(inputs.front(), nothingToShow);
        return false;
    }
    KXData const encoded = encodedPicture(*image, path, format);
    if (!encoded.length()) {
        session.reportError(path, "the picture cannot be encoded");
        return false;
    }
    // Desktops make the file beforehand, and some read what they hold open.
    if (format == PictureFormat::png && fillEmptyFile(path, encoded.bytes()))
        return true;
    return writeOutputFile(path, inputs, encoded.bytes(), session);
}
