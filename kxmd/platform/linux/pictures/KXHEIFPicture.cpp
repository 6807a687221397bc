#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/platform/linux/pictures/KXPictureRowsPrivate.h"

#include <libheif/heif.h>
#include <memory>
#include <vector>

namespace {

struct Release {
    void operator()(heif_context* context) const { heif_context_free(context); }
    void operator()(heif_image_handle const* handle) const { heif_image_handle_release(handle); }
    void operator()(heif_image const* image) const { heif_image_release(image); }
};
using ContextRef = std::unique_ptr<heif_context, Release>;
using HandleRef = std::unique_ptr<heif_image_handle, Release>;
using ImageRef = std::unique_ptr<heif_image, Release>;

bool isDone(heif_error const& error) { return error.code == heif_error_Ok; }

HandleRef primaryPictureOf(heif_context& context)
{
    heif_image_handle* handle = nullptr;
    bool const isThere = isDone(heif_context_get_primary_image_handle(&context, &handle));
    return HandleRef(isThere ? handle : nullptr);
}

std::vector<std::uint8_t> profileOf(heif_image_handle const& handle)
{
    constexpr std::size_t longestProfile = 1 << 20;
    std::size_t const length = heif_image_handle_get_raw_color_profile_size(&handle);
    std::vector<std::uint8_t> profile(length <= longestProfile ? length : 0);
    bool const isThere = !profile.empty()
        && isDone(heif_image_handle_get_raw_color_profile(&handle, profile.data()));
    return isThere ? profile : std::vector<std::uint8_t>();
}

/// Upright: the library turns it as the file says.
ImageRef decodedPicture(heif_image_handle const& handle)
{
    heif_image* image = nullptr;
    bool const isDecoded = isDone(heif_decode_image(
        &handle, &image, heif_colorspace_RGB, heif_chroma_interleaved_RGBA, nullptr));
    return ImageRef(isDecoded ? image : nullptr);
}

}

KXImage::Ref imageOfHEIF(KXPictureSource const& source)
{
    auto const bytes = source.bytes();
    ContextRef const context(heif_context_alloc());
    if (bytes.empty() || !context
        || !isDone(heif_context_read_from_memory_without_copy(
            context.get(), bytes.data(), bytes.size(), nullptr)))
        return nullptr;
    auto const handle = primaryPictureOf(*context);
    if (!handle)
        return nullptr;
    auto const claimedWidth = heif_image_handle_get_width(handle.get());
    auto const claimedHeight = heif_image_handle_get_height(handle.get());
    if (claimedWidth <= 0 || claimedHeight <= 0
        || isPictureTooLarge(
            static_cast<std::uint64_t>(claimedWidth), static_cast<std::uint64_t>(claimedHeight)))
        return nullptr;
    auto const image = decodedPicture(*handle);
    int const width = image ? heif_image_get_width(image.get(), heif_channel_interleaved) : 0;
    int const height = image ? heif_image_get_height(image.get(), heif_channel_interleaved) : 0;
    int rowLength = 0;
    std::uint8_t const* const pixels = width > 0 && height > 0
        ? heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &rowLength)
        : nullptr;
    if (!pixels)
        return nullptr;
    auto const profile = profileOf(*handle);
    KXPictureRows rows(
        {
            .width = static_cast<std::size_t>(width),
            .height = static_cast<std::size_t>(height),
            .hasAlpha = heif_image_handle_has_alpha_channel(handle.get()) != 0,
            .isPremultiplied = heif_image_handle_is_premultiplied_alpha(handle.get()) != 0,
            .profile = profile,
        },
        source.wantedSize, source.square);
    for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y)
        rows.takeRow(pixels + y * static_cast<std::size_t>(rowLength));
    return rows.image();
}

std::vector<std::string> formatsOfHEIF()
{
    std::vector<std::string> names;
    if (heif_have_decoder_for_format(heif_compression_AV1))
        names.emplace_back("avif");
    if (heif_have_decoder_for_format(heif_compression_HEVC))
        names.emplace_back("heic");
    return names;
}
