#include "Preparation.h"

#include "Extensions.h"
#include "FilePreparation.h"

#include <array>
#include <string_view>

std::string PreparationOptions::digest() const
{
    std::string text;
    auto const add
        = [&text](std::string const& option) { text += (text.empty() ? "" : " ") + option; };
    if (insertsCovers)
        add("covers=" + std::to_string(coverSize));
    if (cleans)
        add(keepsMetadata ? "clean=userdata" : "clean");
    if (converts)
        add("convert");
    return text;
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
    return (isReplaced ? target.substr(0, dot) : target) + ".m4a";
}
