#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXPictureLoader.h"
#include "kxmd/platform/linux/render/KXRenderServerPrivate.h"

#include <memory>
#include <optional>
#include <string>

/// Pictures, decoded and encoded by render servers.
class KX_EXPORT_FOR_TESTS KXRenderPictureLoader final : public KXPictureLoader {
public:
    /// Who decodes what. What nobody needs is not started.
    struct Servers {
        std::shared_ptr<KXRenderServer const> pictures; ///< JPEG, PNG, GIF and WebP; encodes.
        std::shared_ptr<KXRenderServer const> rarePictures; ///< TIFF, HEIF, AVIF and drawings.
        std::shared_ptr<KXRenderServer const> movies; ///< All others that we have a signature of.
    };

    KXRenderPictureLoader(Servers servers, KXRenderLimits limits);

    [[nodiscard]] KXImage::Ref imageInData(
        KXAbstractData& data, std::uint64_t length, KXSize wantedSize) const override;
    [[nodiscard]] KXData jpgRepresentation(KXImage const& image) const override;
    [[nodiscard]] KXData pngRepresentation(KXImage const& image) const override;

    /// `knownImageInData:length:wantedSize:` The same as `imageInData:length:wantedSize:`, but
    /// in a shape, and absent for what is in no format that the server knows. Null when decoding
    /// took too long or too much memory: nobody else should be asked then.
    [[nodiscard]] std::optional<KXImage::Ref> knownImageInData(KXAbstractData& data,
        std::uint64_t length, KXSize wantedSize,
        KXRenderRequest::Shape shape = KXRenderRequest::Shape::whole) const;

    /// `drawingInData:length:size:` The drawing (SVG) in the next `length` bytes of `data`, shrunk
    /// or enlarged until it fills `size`, in pixels, in one direction. Null when it is none.
    [[nodiscard]] KXImage::Ref drawingInData(
        KXAbstractData& data, std::uint64_t length, KXSize size) const;

private:
    std::optional<KXImage::Ref> image(
        KXRenderServer const& server, KXRenderRequest request, KXAbstractData& data) const;
    KXData encoded(KXRenderRequest::Operation operation, KXImage const& image) const;

    KXRenderServer const& serverOf(KXAbstractData& data, std::uint64_t length) const;

    Servers const _servers;
    KXRenderLimits const _limits;
};

/// The picture of an answer; null when there is none, or none as the answer says.
KXImage::Ref imageOfAnswer(KXRenderMessage const& message, KXRenderAnswer const& answer);

/// The text of an answer; empty as the bytes are.
std::string textOfAnswer(KXRenderMessage const& message, KXRenderAnswer const& answer);

/// The bytes of an answer; empty when there are none, or not as many as the answer says.
KXData bytesOfAnswer(KXRenderMessage const& message, KXRenderAnswer const& answer);
