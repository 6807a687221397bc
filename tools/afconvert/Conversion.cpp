#include "Conversion.h"

#include "Arguments.h"
#include "AudioReader.h"
#include "AudioWriter.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

extern "C" {
#include <libavutil/error.h>
}

namespace {

/// A new file beside `target`, removed unless it is put in its place.
class FileAside {
public:
    explicit FileAside(std::string target)
        : _target(std::move(target))
        , _path(_target + ".XXXXXX")
    {
        int const descriptor = ::mkstemp(_path.data());
        if (descriptor < 0)
            throw ConversionError(std::string("cannot be written: ") + std::strerror(errno));
        ::close(descriptor);
    }
    ~FileAside()
    {
        if (!_path.empty())
            ::unlink(_path.c_str());
    }
    FileAside(FileAside const&) = delete;
    FileAside& operator=(FileAside const&) = delete;

    std::string const& path() const { return _path; }

    void putInPlace()
    {
        mode_t const mask = ::umask(0);
        ::umask(mask);
        constexpr mode_t readableByAll = 0666; // As far as the user's mask lets it.
        if (::chmod(_path.c_str(), readableByAll & ~mask) != 0
            || std::rename(_path.c_str(), _target.c_str()) != 0)
            throw ConversionError(std::string("cannot be written: ") + std::strerror(errno));
        _path.clear();
    }

private:
    std::string const _target;
    std::string _path;
};

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

void convert(Arguments const& arguments)
{
    std::error_code ignored; // A target that does not exist yet is another file.
    if (std::filesystem::equivalent(arguments.source, arguments.target, ignored))
        throw ConversionError("is its own target");
    AudioReader reader(arguments.source);
    FileAside target(arguments.target);
    {
        AudioWriter writer(target.path(), reader.decoder(), arguments.bitRate);
        writer.addTags(reader.fileTags());
        writer.addTags(reader.streamTags()); // Where Ogg keeps them.
        if (auto const* const cover = reader.cover())
            writer.addCover(*cover);
        writer.begin();
        while (auto const* const frame = reader.nextFrame())
            writer.write(*frame);
        writer.finish();
    }
    target.putInPlace();
}
