#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/image/KXPictureFormatPrivate.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// Pictures by the codecs of their formats. They run in a process that serves one file and may end
// at any time, so what a codec allocates need not outlive a failure of the codec in order.

/// A picture that is to be decoded.
struct KXPictureSource {
    KXAbstractData& data; ///< Stands where the picture begins.
    std::uint64_t length; ///< Its bytes; where `data` has fewer, it is cut off.
    KXSize wantedSize; ///< Neither side comes smaller, unless it is stored so; empty for all of it.

    /// Where a decoder can do so on the way, only the largest centred square is made, in this size.
    std::optional<KXSize> square {};

    /// What its first bytes tell.
    [[nodiscard]] KXPictureFormat format() const;
    /// All bytes; empty when there are more than 256 MiB, or fewer than `length`.
    [[nodiscard]] std::vector<std::uint8_t> bytes() const;
};

/// Reads a picture from its first byte to its last.
class KXPictureInput {
public:
    explicit KXPictureInput(KXPictureSource const& source)
        : _data(source.data)
        , _lengthLeft(source.length)
    {
    }

    /// Reads the next bytes, at most `count` of them; how many there were.
    std::size_t read(std::uint8_t* bytes, std::size_t count);
    void skip(std::uint64_t count);
    /// Whether more was asked for than there is.
    [[nodiscard]] bool isExhausted() const { return _isExhausted; }

private:
    KXAbstractData& _data;
    std::uint64_t _lengthLeft;
    bool _isExhausted { false };
};

// Each gives the picture upright, null when it is damaged or too large. Of a JPEG, a PNG and a GIF
// that are cut off, the upper part is shown.

KXImage::Ref imageOfJPEG(KXPictureSource const& source); ///< ITU-T T.81.
KXImage::Ref imageOfPNG(KXPictureSource const& source); ///< ISO/IEC 15948.
KXImage::Ref imageOfGIF(KXPictureSource const& source); ///< GIF89a; the first frame.
KXImage::Ref imageOfWebP(KXPictureSource const& source); ///< RFC 9649; the first frame.
KXImage::Ref imageOfTIFF(KXPictureSource const& source); ///< TIFF 6.0; the first page.
KXImage::Ref imageOfHEIF(KXPictureSource const& source); ///< ISO/IEC 23008-12, AVIF as well.

/// Short names of what `imageOfHEIF` can decode on this machine.
std::vector<std::string> formatsOfHEIF();

/// How large a drawing is made.
enum class KXDrawingSize : std::uint8_t {
    ownAtMost, ///< So that both sides are as long as wanted, but no larger than it says it is.
    fitting, ///< As large as fits in the wanted size.
};
KXImage::Ref imageOfDrawing(KXPictureSource const& source, KXDrawingSize drawingSize); ///< SVG 1.1.

/// Whether a picture has more pixels than are decoded, as stored or, shrunk by `factor` on the way,
/// as decoded: a few bytes may claim billions of them.
bool isPictureTooLarge(std::uint64_t width, std::uint64_t height, std::uint64_t factor = 1);

/// By how much a picture can be shrunk while it is decoded and stays large enough, upright as well
/// as lying: 8, 4, 2 or 1, the factors by which a JPEG's blocks of 8 can.
unsigned decodingFactor(std::uint64_t width, std::uint64_t height, KXSize wantedSize);

/// The orientation in a block of Exif (JEITA CP-3451), which begins as a TIFF file does; 1 when it
/// has none.
unsigned orientationInExif(std::span<std::uint8_t const> block);
