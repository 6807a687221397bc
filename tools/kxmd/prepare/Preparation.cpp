#include "Preparation.h"

#include "Extensions.h"
#include "FilePreparation.h"

#include <array>
#include <string_view>

std::string PreparationOptions::digestFor(PreparationKind kind) const
{
    switch (kind) {
    case PreparationKind::music:
        return "covers=" + (insertsCovers ? std::to_string(coverSize) : "no")
            + (converts ? " convert=yes" : " convert=no");
    case PreparationKind::video:
        return std::string("clean=") + (!cleans ? "no" : keepsMetadata ? "userdata" : "all");
    case PreparationKind::other:
        break;
    }
    return {};
}

bool PreparationOptions::isDigest(std::string_view digest) const
{
    auto const kind = digest.starts_with("covers") ? PreparationKind::music
        : digest.starts_with("clean")              ? PreparationKind::video
                                                   : PreparationKind::other;
    return digest == digestFor(kind);
}

PreparationOutcome preparedFile(PreparationJob const& job, PreparationOptions const& options,
    FolderPictures& folderPictures, KXPlatform::Ref const& platform)
{
    return FilePreparation(job, options, folderPictures, platform).run();
}

std::string convertedTarget(std::string const& target)
{
    // Of files that may hold lossless audio; a dot in a title begins no extension.
    constexpr std::array<std::string_view, 25> extensions { ".m4a", ".m4b", ".m4r", ".mp4", ".m4v",
        ".mov", ".qt", ".3gp", ".alac", ".flac", ".wav", ".wave", ".w64", ".rf64", ".aif", ".aiff",
        ".aifc", ".caf", ".ape", ".wv", ".tta", ".mka", ".ogg", ".oga", ".au" };
    std::size_t const dot = target.rfind('.');
    bool const isReplaced = hasExtensionOf(extensions, target) && target[dot - 1] != '/';
    std::string converted = isReplaced ? target.substr(0, dot) : target;
    return converted.append(convertedExtension);
}
