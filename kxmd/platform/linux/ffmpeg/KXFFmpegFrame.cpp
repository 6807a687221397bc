#include "kxmd/platform/linux/ffmpeg/KXFFmpegFramePrivate.h"

#include "kxmd/image/KXPremultipliedPrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegToneMapPrivate.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace {

/// The turn that brings a frame upright, as a mapping of the result's pixels to the frame's.
struct Turn {
    bool isTransposed { false };
    bool isMirroredInX { false }; ///< The frame's columns run backwards.
    bool isMirroredInY { false };

    /// Angles in between become the nearest quarter.
    static Turn byMatrix(std::int32_t const* matrix)
    {
        if (!matrix)
            return {};
        // A point (x, y) is shown at (a x + c y, b x + d y), y downwards.
        std::int64_t const a = matrix[0], b = matrix[1], c = matrix[3], d = matrix[4];
        if (std::abs(b) + std::abs(c) > std::abs(a) + std::abs(d))
            return { true, b < 0, c < 0 };
        return { false, a < 0, d < 0 };
    }
};

struct PixelSize {
    int width;
    int height;
};

/// The size at which a frame is shown before it is turned: whole pixels, no larger than allowed.
PixelSize shownSize(AVFrame const& frame, AVRational pixelAspect, KXSize maximumSize)
{
    double width = frame.width;
    double const height = frame.height;
    if (pixelAspect.num > 0 && pixelAspect.den > 0)
        width *= av_q2d(pixelAspect);
    // A pixel may claim to be a thousand times as wide as high; what is made of it has bounds.
    constexpr double longestSide = 1 << 15, mostPixels = 1 << 26;
    double scale = std::min(
        { 1.0, longestSide / std::max(width, height), std::sqrt(mostPixels / (width * height)) });
    if (maximumSize.width > 0 && maximumSize.height > 0)
        scale = std::min({ scale, maximumSize.width / width, maximumSize.height / height });
    auto const side = [scale](double length) {
        // Never over what is allowed, but for a size that is met to the last bit.
        double const whole = scale < 1 ? std::floor(length * scale + 1e-6) : std::round(length);
        return static_cast<int>(std::max(whole, 1.0));
    };
    return { side(width), side(height) };
}

/// The matrix that turns the frame's colour differences into colours (ITU-T H.273, 8.3).
int const* coefficientsOfFrame(AVFrame const& frame)
{
    int space = frame.colorspace; // sws_getCoefficients goes by the same numbers.
    if (space == AVCOL_SPC_UNSPECIFIED || space == AVCOL_SPC_RESERVED) {
        // What every player takes: high definition came with BT.709.
        bool const isHighDefinition = frame.width >= 1280 || frame.height > 576;
        space = isHighDefinition ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    }
    return sws_getCoefficients(space);
}

bool usesFullRange(AVFrame const& frame)
{
    switch (frame.format) {
    case AV_PIX_FMT_YUVJ411P:
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ444P:
        return true;
    default:
        return frame.color_range == AVCOL_RANGE_JPEG;
    }
}

/// The frame at `size` in `target`, a kind of RGBA, alpha not multiplied in.
AVFrameRef scaledFrame(AVFrame const& frame, PixelSize size, AVPixelFormat target)
{
    auto const format = static_cast<AVPixelFormat>(frame.format);
    if (!sws_isSupportedInput(format))
        return nullptr;
    // Wide filters when shrinking, and colour at the full resolution.
    constexpr int quality = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT;
    AVScalerRef const scaler(sws_getContext(frame.width, frame.height, format, size.width,
        size.height, target, quality, nullptr, nullptr, nullptr));
    AVFrameRef scaled(av_frame_alloc());
    if (!scaler || !scaled)
        return nullptr;
    constexpr int neutral = 1 << 16; // 1.0 for contrast and saturation.
    sws_setColorspaceDetails(scaler.get(), coefficientsOfFrame(frame), usesFullRange(frame),
        sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, neutral, neutral);
    scaled->format = target;
    scaled->width = size.width;
    scaled->height = size.height;
    if (av_frame_get_buffer(scaled.get(), 0) < 0)
        return nullptr;
    int const rows = sws_scale(
        scaler.get(), frame.data, frame.linesize, 0, frame.height, scaled->data, scaled->linesize);
    return rows == size.height ? std::move(scaled) : nullptr;
}

std::vector<std::uint8_t> turnedPixels(AVFrame const& frame, Turn turn)
{
    auto const width = static_cast<std::size_t>(turn.isTransposed ? frame.height : frame.width);
    auto const height = static_cast<std::size_t>(turn.isTransposed ? frame.width : frame.height);
    auto const lastX = static_cast<std::size_t>(frame.width) - 1;
    auto const lastY = static_cast<std::size_t>(frame.height) - 1;
    auto const rowLength = static_cast<std::size_t>(frame.linesize[0]);
    std::vector<std::uint8_t> pixels(width * height * KXImage::bytesPerPixel);
    std::uint8_t* to = pixels.data();
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            std::size_t x = turn.isTransposed ? row : column;
            std::size_t y = turn.isTransposed ? column : row;
            if (turn.isMirroredInX)
                x = lastX - x;
            if (turn.isMirroredInY)
                y = lastY - y;
            std::memcpy(to, frame.data[0] + y * rowLength + x * KXImage::bytesPerPixel,
                KXImage::bytesPerPixel);
            to += KXImage::bytesPerPixel;
        }
    }
    return pixels;
}

}

KXImage::Ref imageOfFrame(
    AVFrame const& frame, KXFFmpegPresentation const& presentation, KXSize maximumSize)
{
    auto const* const format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    if (!format || frame.width <= 0 || frame.height <= 0)
        return nullptr;
    Turn const turn = Turn::byMatrix(presentation.displayMatrix);
    if (turn.isTransposed)
        std::swap(maximumSize.width, maximumSize.height);
    bool const isBright = isHighDynamicRange(frame.color_trc);
    auto scaled = scaledFrame(frame, shownSize(frame, presentation.pixelAspect, maximumSize),
        isBright ? AV_PIX_FMT_RGBA64 : AV_PIX_FMT_RGBA);
    if (scaled && isBright)
        scaled = toneMappedFrame(*scaled, frame.color_trc);
    if (!scaled)
        return nullptr;
    auto pixels = turnedPixels(*scaled, turn);
    if (format->flags & AV_PIX_FMT_FLAG_ALPHA)
        multiplyByAlpha(pixels);
    auto width = static_cast<std::size_t>(scaled->width);
    auto height = static_cast<std::size_t>(scaled->height);
    if (turn.isTransposed)
        std::swap(width, height);
    return KXImage::imageWithPixels(std::move(pixels), width, height);
}
