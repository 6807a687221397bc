#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/base/KXMemoryDataPrivate.h"

#include <algorithm>

KXPictureFormat KXPictureSource::format() const
{
    return formatOfPictureWithHead(headOfPicture(data, length));
}

std::vector<std::uint8_t> KXPictureSource::bytes() const { return bytesOfPicture(data, length); }

std::size_t KXPictureInput::read(std::uint8_t* bytes, std::size_t count)
{
    std::uint64_t const read
        = _data.readBytesToMaxLength(bytes, std::min<std::uint64_t>(count, _lengthLeft));
    _lengthLeft -= read;
    _isExhausted = _isExhausted || read < count;
    return static_cast<std::size_t>(read);
}

void KXPictureInput::skip(std::uint64_t count)
{
    count = std::min(count, _lengthLeft);
    _data.skipBytes(count);
    _lengthLeft -= count;
}

bool isPictureTooLarge(std::uint64_t width, std::uint64_t height, std::uint64_t factor)
{
    constexpr std::uint64_t mostStoredPixels = 1ull << 28;
    constexpr std::uint64_t mostDecodedPixels = 1ull << 27;
    if (width > KXImage::longestSide || height > KXImage::longestSide)
        return true;
    auto const shrunk = [factor](std::uint64_t side) { return (side + factor - 1) / factor; };
    return width * height > mostStoredPixels || shrunk(width) * shrunk(height) > mostDecodedPixels;
}

unsigned decodingFactor(std::uint64_t width, std::uint64_t height, KXSize wantedSize)
{
    double const wanted = std::max(wantedSize.width, wantedSize.height);
    for (unsigned const factor : { 8u, 4u, 2u }) {
        std::uint64_t const shorterSide = std::min(width, height) / factor;
        if (wanted > 0 && static_cast<double>(shorterSide) >= wanted)
            return factor;
    }
    return 1;
}

unsigned orientationInExif(std::span<std::uint8_t const> block)
{
    // TIFF 6.0, section 2.
    constexpr std::uint16_t orientationTag = 274, typeShort = 3;
    constexpr std::uint64_t offsetOfDirectory = 4, entryLength = 12;
    KXMemoryData data(block);
    KXSwap const swap = data.readUInt8OrZero() == 'M' ? KXSwap::yes : KXSwap::no;
    data.setOffset(offsetOfDirectory);
    data.setOffset(data.readUInt32OrZero(swap));
    std::uint64_t const count = data.readUInt16OrZero(swap);
    std::uint64_t const entries = data.offset();
    for (std::uint64_t i = 0; i < count; ++i) {
        data.setOffset(entries + i * entryLength);
        std::uint16_t tag;
        if (!data.readUInt16To(tag, swap))
            break;
        if (tag != orientationTag)
            continue;
        bool const isShort = data.readUInt16OrZero(swap) == typeShort;
        data.skipBytes(4); // The count, which is 1.
        std::uint16_t const orientation = data.readUInt16OrZero(swap);
        return isShort && orientation >= 1 && orientation <= 8 ? orientation : 1;
    }
    return 1;
}
