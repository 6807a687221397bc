#include "kxmd/platform/linux/thumbnails/KXSharedThumbnailFolderPrivate.h"

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"

#include <array>
#include <charconv>
#include <map>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace {

struct SizeFolder {
    std::string_view name;
    int sideLength;
};

constexpr SizeFolder sizeFolders[] {
    { "normal", 128 },
    { "large", 256 },
    { "x-large", 512 },
    { "xx-large", 1024 },
};

constexpr std::uint64_t longestText = 32 * 1024; // An address; far more than a path can have.
constexpr int mostChunks = 64; // The texts stand before the pixels.

/// The next `length` bytes as they are; empty when they are not there.
std::string readBytes(KXAbstractData& data, std::uint64_t length)
{
    if (length > data.remainingLength())
        return {};
    std::string bytes(static_cast<std::size_t>(length), '\0');
    return data.readBytesTo(reinterpret_cast<std::uint8_t*>(bytes.data()), length) ? bytes
                                                                                   : std::string();
}

/// The tEXt chunks (ISO/IEC 15948, 11.3.4.3) before the pixels.
std::map<std::string, std::string> textsOfPNG(KXAbstractData& data)
{
    std::map<std::string, std::string> texts;
    if (readBytes(data, signatureOfPNG.size()) != signatureOfPNG)
        return texts;
    for (int i = 0; i < mostChunks; ++i) {
        std::uint32_t const length = data.readUInt32OrZero(KXSwap::yes);
        std::string const type = readBytes(data, 4);
        if (type.empty() || type == "IDAT")
            break;
        std::uint64_t const content = data.offset();
        if (type == "tEXt" && length <= longestText) {
            std::string const text = readBytes(data, length);
            if (std::size_t const end = text.find('\0'); end != std::string::npos)
                texts.emplace(text.substr(0, end), text.substr(end + 1));
        }
        data.setOffset(content + length + 4); // And the checksum.
    }
    return texts;
}

bool isNumber(std::string_view text, std::int64_t number)
{
    std::int64_t told = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), told);
    // Some programs write a fraction of the second after it.
    bool const isOver = end == text.data() + text.size() || *end == '.';
    return error == std::errc() && isOver && told == number;
}

/// Whether the thumbnail at `path` was made of the file as it is now.
bool isOfFile(std::string const& path, std::string const& address, struct stat const& file)
{
    auto const data = KXAbstractData::abstractDataWithPath(path);
    if (!data)
        return false;
    auto const texts = textsOfPNG(*data);
    auto const valueOf = [&texts](char const* key) {
        auto const found = texts.find(key);
        return found == texts.end() ? std::string() : found->second;
    };
    std::string const size = valueOf("Thumb::Size"); // May be missing.
    return valueOf("Thumb::URI") == address && isNumber(valueOf("Thumb::MTime"), file.st_mtime)
        && (size.empty() || isNumber(size, file.st_size));
}

}

KXSharedThumbnailFolder::KXSharedThumbnailFolder(std::string folder)
    : _folder(std::move(folder))
{
}

std::optional<KXSharedThumbnailFolder::Entry> KXSharedThumbnailFolder::entryForPath(
    std::string const& path, int sideLength) const
{
    struct stat file { };
    GAllocated<gchar> const address(g_filename_to_uri(path.c_str(), nullptr, nullptr));
    if (!address || ::stat(path.c_str(), &file) != 0)
        return std::nullopt;
    GAllocated<gchar> const digest(
        g_compute_checksum_for_string(G_CHECKSUM_MD5, address.get(), -1));
    std::optional<Entry> best;
    for (auto const& size : sizeFolders) {
        std::string entry = _folder + '/' + std::string(size.name) + '/' + digest.get() + ".png";
        if (!isOfFile(entry, address.get(), file))
            continue;
        best = Entry { std::move(entry), size.sideLength };
        if (size.sideLength >= sideLength)
            break;
    }
    return best;
}
