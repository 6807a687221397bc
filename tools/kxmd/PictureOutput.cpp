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

}

CLI::Option* addPictureOutput(CLI::App& command, std::string& path)
{
    auto const take = [&path](std::string const& typed) {
        path = withoutLiteralMark(typed);
        if (!formatOfPath(path))
            throw CLI::ValidationError("-o", "\"" + path + "\" ends in none of .png, .jpg, .jpeg");
    };
    return command
        .add_option_function<std::string>("-o,--output", take, "Write a PNG or JPEG, by name")
        ->type_name("OUT");
}

KXData encodedPicture(KXImage const& image, std::string const& path)
{
    auto const encode = formatOfPath(path)->encode;
    return ((*machine()->pictureLoader).*encode)(image);
}

bool writePicture(KXImage::Ref const& image, std::string const& path,
    std::vector<std::string> const& inputs, Session& session)
{
    if (!image) {
        session.reportError(inputs.front(), nothingToShow);
        return false;
    }
    KXData const encoded = encodedPicture(*image, path);
    if (!encoded.length()) {
        session.reportError(path, "the picture cannot be encoded");
        return false;
    }
    return writeOutputFile(path, inputs, encoded.bytes(), session);
}
