#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"
#include "kxmd/platform/linux/render/program/KXForkServerPrivate.h"

#include <string>
#include <vector>

// Decodes rarer pictures, and makes drawings, each in a process of its own:
//
//     kxmd-render-rare
//
// Its codecs take ten times as long to load as those of the pictures that everybody has. It is
// started by the library, which talks to it over its standard output, a socket.

namespace {

KXImage::Ref decoded(KXPictureSource const& source)
{
    switch (source.format()) {
    case KXPictureFormat::tiff:
        return imageOfTIFF(source);
    case KXPictureFormat::heif:
    case KXPictureFormat::heifSequence:
        return imageOfHEIF(source);
    default:
        return imageOfDrawing(source, KXDrawingSize::ownAtMost);
    }
}

std::vector<std::string> formats()
{
    std::vector<std::string> names = formatsOfHEIF();
    names.insert(names.end(), { "svg", "tiff" });
    return names;
}

class RarePictureWork final : public KXRenderWork {
public:
    void warmUp() const override { }

    void serve(KXRenderRequest const& request, KXAbstractData& data,
        KXRenderReply const& reply) const override
    {
        KXPictureSource const source { data, request.length, request.decodedSize(),
            request.square() };
        switch (request.operation) {
        case KXRenderRequest::Operation::picture:
            return reply.sendImageOf(data, decoded(source), request);
        case KXRenderRequest::Operation::drawing:
            return reply.sendImageOf(data, imageOfDrawing(source, KXDrawingSize::fitting), request);
        case KXRenderRequest::Operation::formats:
            return reply.sendWords(formats());
        default:
            return reply.send({ .outcome = KXRenderAnswer::Outcome::unknown });
        }
    }
};

}

int main() { return runRenderServer(RarePictureWork()); }
