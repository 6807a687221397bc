#include "kxmd/c/KXCFilePrivate.h"
#include "kxmd/c/KXCThumbnailsPrivate.h"

struct kxmd_thumbnails {
    std::shared_ptr<KXCThumbnailMaker> maker;
};

struct kxmd_request {
    KXCThumbnailRequest::Ref request;
};

KXCThumbnail KXCThumbnail::checked(
    char const* path, std::uint32_t width, std::uint32_t height, kxmd_thumbnail_shape shape)
{
    constexpr std::uint32_t longest = KXMD_LONGEST_THUMBNAIL_SIDE;
    KXCRequire(path && *path, "there is no path");
    KXCRequire(width && height && width <= longest && height <= longest, "there is no such size");
    KXCRequire(
        shape == KXMD_THUMBNAIL_SQUARE || shape == KXMD_THUMBNAIL_FIT, "there is no such shape");
    return { path, width, height, shape };
}

KXImage::Ref KXCThumbnail::makeWith(KXMDThumbnailController& controller) const
{
    KXSize const size { static_cast<double>(width), static_cast<double>(height) };
    auto image = shape == KXMD_THUMBNAIL_SQUARE
        ? controller.thumbnailForPath(path, size)
        : controller.platform()->thumbnailService->imageForPath(path, size);
    if (image)
        return image;
    auto const reader = KXCReaderOfPath(path.c_str()); // Fails for its own reason.
    KXCFailWithout(KXCDecoder::pictures, KXMD_ERROR_NOT_FOUND, "cannot be shown");
}

kxmd_thumbnails* kxmd_thumbnails_new(
    size_t cacheBytes, kxmd_post post, void* userData, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        std::size_t byteBudget = KXMDThumbnailController::defaultByteBudget;
        if (cacheBytes)
            byteBudget = cacheBytes;
        auto maker = std::make_shared<KXCThumbnailMaker>(byteBudget);
        maker->post = post;
        maker->userData = userData;
        return KXCNew<kxmd_thumbnails>(std::move(maker));
    });
}

kxmd_image* kxmd_thumbnails_make(kxmd_thumbnails* thumbnails, char const* path, uint32_t width,
    uint32_t height, kxmd_thumbnail_shape shape, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXCRequire(thumbnails, "there is no handle");
        auto const thumbnail = KXCThumbnail::checked(path, width, height, shape);
        return KXCNew<kxmd_image>(thumbnail.makeWith(*thumbnails->maker->controller));
    });
}

bool kxmd_thumbnails_request(kxmd_thumbnails* thumbnails, char const* path, uint32_t width,
    uint32_t height, kxmd_thumbnail_shape shape, kxmd_thumbnail_handler handler, void* userData,
    kxmd_request** request, kxmd_error** error) noexcept
{
    if (request)
        *request = nullptr;
    return KXCAnswer(error, [&] {
        KXCRequire(thumbnails, "there is no handle");
        KXCRequire(handler, "there is no handler");
        auto thumbnail = KXCThumbnail::checked(path, width, height, shape);
        auto made = std::make_shared<KXCThumbnailRequest>(
            thumbnails->maker, std::move(thumbnail), handler, userData);
        std::unique_ptr<kxmd_request> handle(KXCNew<kxmd_request>(made));
        // Before it is submitted, since the handler may be called first.
        if (request)
            *request = handle.get();
        try {
            KXCThumbnailRequest::submit(made);
        } catch (...) {
            if (request)
                *request = nullptr;
            throw;
        }
        if (request)
            static_cast<void>(handle.release());
        return true;
    });
}

void kxmd_request_cancel(kxmd_request* request) noexcept
{
    if (request)
        request->request->cancel();
}

void kxmd_request_free(kxmd_request* request) noexcept { delete request; }

void kxmd_thumbnails_free(kxmd_thumbnails* thumbnails) noexcept
{
    if (!thumbnails)
        return;
    thumbnails->maker->isClosed = true;
    delete thumbnails;
}
