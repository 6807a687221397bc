// Pictures of HEIF, by their codecs right here and by the program that decodes them.

#include "kxmd/platform/linux/pictures/KXPictureDecodersPrivate.h"

#include "kxmd/base/KXSanitizersPrivate.h"
#include "support/PictureLoaderTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <libheif/heif.h>
#include <memory>

using namespace build;
using namespace pictures;

namespace {

struct HEIFCloser {
    void operator()(heif_context* context) const { heif_context_free(context); }
    void operator()(heif_encoder* encoder) const { heif_encoder_release(encoder); }
    void operator()(heif_image* image) const { heif_image_release(image); }
};
template <class Object> using Owned = std::unique_ptr<Object, HEIFCloser>;

bool isDone(heif_error const& error) { return error.code == heif_error_Ok; }

heif_error append(heif_context*, void const* bytes, std::size_t length, void* file)
{
    auto const* const first = static_cast<std::uint8_t const*>(bytes);
    auto& target = *static_cast<Bytes*>(file);
    target.insert(target.end(), first, first + length);
    return { heif_error_Ok, heif_suberror_Unspecified, "" };
}

/// A file of that codec; empty where nobody encodes it.
Bytes heif(KXImage const& picture, heif_compression_format format)
{
    auto const width = static_cast<int>(picture.pixelWidth());
    auto const height = static_cast<int>(picture.pixelHeight());
#if KXMD_HAS_ADDRESS_SANITIZER
    if (format == heif_compression_HEVC) // x265 leaves memory behind.
        return {};
#endif
    Owned<heif_context> const context(heif_context_alloc());
    heif_encoder* encoder = nullptr;
    if (!isDone(heif_context_get_encoder_for_format(context.get(), format, &encoder)))
        return {};
    Owned<heif_encoder> const ownedEncoder(encoder);
    heif_encoder_set_lossy_quality(encoder, 95);
    heif_image* image = nullptr;
    EXPECT_TRUE(isDone(heif_image_create(
        width, height, heif_colorspace_RGB, heif_chroma_interleaved_RGBA, &image)));
    Owned<heif_image> const ownedImage(image);
    EXPECT_TRUE(isDone(heif_image_add_plane(image, heif_channel_interleaved, width, height, 8)));
    int rowLength = 0;
    std::uint8_t* const plane = heif_image_get_plane(image, heif_channel_interleaved, &rowLength);
    for (int y = 0; y < height; ++y)
        std::copy_n(&picture.pixels()[static_cast<std::size_t>(y * width) * 4], width * 4,
            plane + y * rowLength);
    EXPECT_TRUE(isDone(heif_context_encode_image(context.get(), image, encoder, nullptr, nullptr)));
    heif_writer writer { 1, append };
    Bytes file;
    EXPECT_TRUE(isDone(heif_context_write(context.get(), &writer, &file)));
    return file;
}

class KXHEIFPicture : public PictureLoaderTest,
                      public testing::WithParamInterface<heif_compression_format> {
protected:
    void SetUp() override
    {
        if (file.empty() || !heif_have_decoder_for_format(GetParam()))
            GTEST_SKIP() << "nobody encodes and decodes it here";
    }

    KXImage::Ref const picture { photograph(96, 64) };
    Bytes const file { heif(*picture, GetParam()) };
};

}

TEST_P(KXHEIFPicture, IsShown)
{
    auto const data = reader(file);
    for (auto const& image : { imageOfHEIF({ *data, file.size(), {} }), decoded(file) }) {
        ASSERT_TRUE(image);
        ASSERT_EQ(image->size(), picture->size());
        EXPECT_GE(likeness(*image, *picture), 30);
    }
}

TEST_P(KXHEIFPicture, EveryTruncationIsShownOrNot)
{
    for (std::size_t length = 0; length < file.size(); length += 1 + file.size() / 200) {
        auto const data
            = reader(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
        auto const image = imageOfHEIF({ *data, length, {} });
        EXPECT_TRUE(!image || image->size() == picture->size()) << length;
    }
}

INSTANTIATE_TEST_SUITE_P(Codecs, KXHEIFPicture,
    testing::Values(heif_compression_HEVC, heif_compression_AV1),
    [](auto const& codec) { return codec.param == heif_compression_AV1 ? "AV1" : "HEVC"; });
