#include "kxmd/base/KXMemoryDataPrivate.h"
#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"
#include "kxmd/platform/linux/pictures/KXPictureEncodersPrivate.h"
#include "kxmd/platform/linux/render/program/KXForkServerPrivate.h"

#include <utility>
#include <vector>

// Decodes the pictures that everybody has, and encodes pictures, each in a process of its own:
//
//     kxmd-render
//
// It is started by the library, which talks to it over its standard output, a socket.

namespace {

KXImage::Ref decoded(KXPictureSource const& source)
{
    switch (source.format()) {
    case KXPictureFormat::jpeg:
        return imageOfJPEG(source);
    case KXPictureFormat::png:
        return imageOfPNG(source);
    case KXPictureFormat::gif:
        return imageOfGIF(source);
    case KXPictureFormat::webp:
        return imageOfWebP(source);
    default:
        return nullptr;
    }
}

/// The pixels in the file that a request speaks of; null when they are not as it says.
KXImage::Ref pixelsFor(KXRenderRequest const& request, KXAbstractData& data)
{
    if (request.length != data.length())
        return nullptr;
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(request.length));
    if (!data.readBytesTo(pixels.data(), pixels.size()))
        return nullptr;
    return KXImage::imageWithPixels(std::move(pixels), request.width, request.height);
}

class PictureWork final : public KXRenderWork {
public:
    void warmUp() const override
    {
        auto const image = KXImage::imageWithSize({ 16, 16 });
        for (KXData const& encoded : { jpegOfImage(*image), pngOfImage(*image) }) {
            KXMemoryData data(encoded);
            (void)decoded({ data, data.length(), {} });
        }
    }

    void serve(KXRenderRequest const& request, KXAbstractData& data,
        KXRenderReply const& reply) const override
    {
        switch (request.operation) {
        case KXRenderRequest::Operation::picture:
            return reply.sendImageOf(data,
                decoded({ data, request.length, request.decodedSize(), request.square() }),
                request);
        case KXRenderRequest::Operation::jpg:
        case KXRenderRequest::Operation::png: {
            auto const image = pixelsFor(request, data);
            bool const isJPEG = request.operation == KXRenderRequest::Operation::jpg;
            KXData const encoded = !image ? KXData()
                : isJPEG                  ? jpegOfImage(*image)
                                          : pngOfImage(*image);
            return reply.sendBytes(encoded.bytes());
        }
        case KXRenderRequest::Operation::formats:
            return reply.sendWords({ "gif", "jpeg", "png", "webp" });
        default:
            return reply.send({ .outcome = KXRenderAnswer::Outcome::unknown });
        }
    }
};

}

int main() { return runRenderServer(PictureWork()); }
