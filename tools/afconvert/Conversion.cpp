#include "Conversion.h"

#include "Arguments.h"
#include "AudioReader.h"
#include "AudioWriter.h"
#include "CoverPicture.h"
#include "tools/shared/AtomicFile.h"

#include <array>
#include <filesystem>
#include <utility>

extern "C" {
#include <libavutil/error.h>
}

std::string textOfError(int code)
{
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text {};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

int checked(int code, char const* what)
{
    if (code < 0)
        throw ConversionError(std::string(what) + ": " + textOfError(code));
    return code;
}

namespace {

void checkTarget(AtomicFile const& target, bool isDone)
{
    if (!isDone)
        throw ConversionError(target.errorWithPath());
}

}

void convert(Arguments const& arguments)
{
    std::error_code ignored; // A target that does not exist yet is another file.
    if (std::filesystem::equivalent(arguments.source, arguments.target, ignored))
        throw ConversionError("is its own target");
    AudioReader reader(arguments.source);
    AtomicFile target(arguments.target);
    checkTarget(target, target.open());
    {
        AudioWriter writer(target.openPath(), reader.decoder(), arguments.bitRate);
        writer.addTags(reader.fileTags());
        writer.addTags(reader.streamTags()); // Where Ogg keeps them.
        auto cover = reader.cover();
        if (!cover)
            cover = coverOfMP4File(arguments.source);
        if (cover)
            writer.addCover(std::move(*cover));
        writer.begin();
        while (auto const* const frame = reader.nextFrame())
            writer.write(*frame);
        writer.finish();
    }
    checkTarget(target, target.commit());
}
