#include "kxmd/base/KXMemoryDataPrivate.h"
#include "kxmd/platform/linux/pictures/KXPixbufPictureLoaderPrivate.h"
#include "kxmd/platform/linux/render/program/KXForkServerPrivate.h"

#include <vector>

// Decodes and encodes pictures for the library, each in a process of its own:
//
//     kxmd-render
//
// It is started by the library, which talks to it over its standard output, a socket.

namespace {

class PictureWork final : public KXRenderWork {
public:
    void warmUp() const override
    {
        auto const image = KXImage::imageWithSize({ 16, 16 });
        for (auto const& encoded :
            { _loader.jpgRepresentation(*image), _loader.pngRepresentation(*image) }) {
            KXMemoryData data(encoded);
            (void)_loader.imageInData(data, data.length(), {});
        }
    }

    void serve(KXRenderRequest const& request, KXAbstractData& data,
        KXRenderReply const& reply) const override
    {
        KXSize const size { request.wantedWidth, request.wantedHeight };
        switch (request.operation) {
        case KXRenderRequest::Operation::picture:
            return reply.sendImage(_loader.imageInData(data, request.length, size));
        case KXRenderRequest::Operation::drawing:
            return reply.sendImage(_loader.drawingInData(data, request.length, size));
        case KXRenderRequest::Operation::jpg:
        case KXRenderRequest::Operation::png:
            return reply.sendBytes(encoded(request, data).bytes());
        case KXRenderRequest::Operation::formats:
            return reply.sendWords(KXPixbufPictureLoader::formats());
        case KXRenderRequest::Operation::movie:
        case KXRenderRequest::Operation::probe:
            return reply.send({ .outcome = KXRenderAnswer::Outcome::unknown });
        }
    }

private:
    KXData encoded(KXRenderRequest const& request, KXAbstractData& data) const
    {
        if (request.length != data.length())
            return {};
        std::vector<std::uint8_t> pixels(static_cast<std::size_t>(request.length));
        if (!data.readBytesTo(pixels.data(), pixels.size()))
            return {};
        auto const image
            = KXImage::imageWithPixels(std::move(pixels), request.width, request.height);
        if (!image)
            return {};
        return request.operation == KXRenderRequest::Operation::jpg
            ? _loader.jpgRepresentation(*image)
            : _loader.pngRepresentation(*image);
    }

    KXPixbufPictureLoader _loader;
};

}

int main() { return runRenderServer(PictureWork()); }
