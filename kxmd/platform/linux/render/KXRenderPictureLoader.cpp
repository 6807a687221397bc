#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"

#include "kxmd/image/KXPictureFormatPrivate.h"
#include "kxmd/platform/linux/render/KXSealedMemoryPrivate.h"

#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

/// The memory that came with an answer; null when it is not as the answer says.
std::shared_ptr<std::uint8_t const> memoryOfAnswer(
    KXRenderMessage const& message, KXRenderAnswer const& answer)
{
    if (answer.outcome != KXRenderAnswer::Outcome::done || message.files.size() != 1)
        return nullptr;
    return mappedSealedMemory(message.files.front().get(), answer.length);
}

/// Whether a drawing may begin so: with an element of XML, perhaps in a file of gzip (RFC 1952).
bool isOfDrawing(std::string_view head)
{
    std::size_t const first = head.find_first_not_of("\xEF\xBB\xBF \t\r\n");
    return head.starts_with("\x1F\x8B") || (first != head.npos && head[first] == '<');
}

/// The host's own pixels may be many; they take a second for every four million, and are copied
/// twice.
KXRenderLimits limitsOfEncoding(KXRenderLimits limits, std::uint64_t length)
{
    constexpr std::uint64_t bytesPerSecond = KXImage::bytesPerPixel << 22;
    limits.time += limits.time * (length / bytesPerSecond);
    limits.memory += 3 * length;
    return limits;
}

}

KXImage::Ref imageOfAnswer(KXRenderMessage const& message, KXRenderAnswer const& answer)
{
    return KXImage::imageWithSharedPixels(
        memoryOfAnswer(message, answer), answer.length, answer.width, answer.height);
}

KXData bytesOfAnswer(KXRenderMessage const& message, KXRenderAnswer const& answer)
{
    auto const memory = memoryOfAnswer(message, answer);
    return memory ? KXData(std::vector<std::uint8_t>(memory.get(), memory.get() + answer.length))
                  : KXData();
}

std::string textOfAnswer(KXRenderMessage const& message, KXRenderAnswer const& answer)
{
    auto const memory = memoryOfAnswer(message, answer);
    return memory ? std::string(memory.get(), memory.get() + answer.length) : std::string();
}

KXRenderPictureLoader::KXRenderPictureLoader(Servers servers, KXRenderLimits limits)
    : _servers(std::move(servers))
    , _limits(limits)
{
}

KXRenderServer const& KXRenderPictureLoader::serverOf(
    KXAbstractData& data, std::uint64_t length) const
{
    std::string const head = headOfPicture(data, length);
    switch (formatOfPictureWithHead(head)) {
    case KXPictureFormat::tiff:
    case KXPictureFormat::heif:
    case KXPictureFormat::heifSequence:
        return *_servers.rarePictures;
    case KXPictureFormat::bmp:
    case KXPictureFormat::icon:
    case KXPictureFormat::uncommon:
        return *_servers.movies;
    default:
        return isOfDrawing(head) ? *_servers.rarePictures : *_servers.pictures;
    }
}

KXImage::Ref KXRenderPictureLoader::imageInData(
    KXAbstractData& data, std::uint64_t length, KXSize wantedSize) const
{
    return knownImageInData(data, length, wantedSize).value_or(nullptr);
}

std::optional<KXImage::Ref> KXRenderPictureLoader::knownImageInData(KXAbstractData& data,
    std::uint64_t length, KXSize wantedSize, KXRenderRequest::Shape shape) const
{
    return image(serverOf(data, length),
        { .operation = KXRenderRequest::Operation::picture,
            .shape = shape,
            .length = length,
            .wantedWidth = wantedSize.width,
            .wantedHeight = wantedSize.height },
        data);
}

KXImage::Ref KXRenderPictureLoader::drawingInData(
    KXAbstractData& data, std::uint64_t length, KXSize size) const
{
    return image(*_servers.rarePictures,
        { .operation = KXRenderRequest::Operation::drawing,
            .length = length,
            .wantedWidth = size.width,
            .wantedHeight = size.height },
        data)
        .value_or(nullptr);
}

std::optional<KXImage::Ref> KXRenderPictureLoader::image(
    KXRenderServer const& server, KXRenderRequest request, KXAbstractData& data) const
{
    if (request.length > data.remainingLength())
        return nullptr;
    auto const reply = server.replyTo(request, data, _limits);
    if (reply && reply->answer.outcome == KXRenderAnswer::Outcome::unknown)
        return std::nullopt;
    return reply ? imageOfAnswer(reply->message, reply->answer) : nullptr;
}

KXData KXRenderPictureLoader::encoded(
    KXRenderRequest::Operation operation, KXImage const& image) const
{
    KXRenderRequest const request { .operation = operation,
        .width = static_cast<std::uint32_t>(image.pixelWidth()),
        .height = static_cast<std::uint32_t>(image.pixelHeight()),
        .length = image.pixels().size() };
    KXFileDescriptor const pixels = sealedMemoryOf(image.pixels());
    if (!pixels.isOpen())
        throw std::bad_alloc();
    auto const reply = _servers.pictures->replyTo(
        request, pixels.get(), limitsOfEncoding(_limits, request.length));
    return reply ? bytesOfAnswer(reply->message, reply->answer) : KXData();
}

KXData KXRenderPictureLoader::jpgRepresentation(KXImage const& image) const
{
    return encoded(KXRenderRequest::Operation::jpg, image);
}

KXData KXRenderPictureLoader::pngRepresentation(KXImage const& image) const
{
    return encoded(KXRenderRequest::Operation::png, image);
}
