#pragma once

#include "kxmd/base/KXSerialQueue.h"
#include "kxmd/c/KXCErrorPrivate.h"
#include "kxmd/c/KXCImagePrivate.h"
#include "kxmd/thumbnails/KXMDThumbnailController.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

/// Which thumbnail is wanted.
struct KXCThumbnail {
    std::string path;
    std::uint32_t width;
    std::uint32_t height;
    kxmd_thumbnail_shape shape;

    /// Fails for arguments that are none.
    static KXCThumbnail checked(
        char const* path, std::uint32_t width, std::uint32_t height, kxmd_thumbnail_shape shape);

    /// Fails when there is nothing to show.
    KXImage::Ref makeWith(KXMDThumbnailController& controller) const;
};

/// What makes thumbnails, for as long as a handle or a request needs it.
struct KXCThumbnailMaker {
    explicit KXCThumbnailMaker(std::size_t cacheBytes)
        : controller(KXMDThumbnailController::createWithPlatform(nullptr, cacheBytes))
    {
    }

    KXMDThumbnailController::Ref const controller;
    kxmd_post post { nullptr };
    void* userData { nullptr };
    std::atomic<bool> isClosed { false }; ///< The handle is freed.
    KXSerialQueue queue { "org.kxmd.thumbnails" };
};

/// A request for a thumbnail. All memory that its delivery takes is there before it begins, so that
/// its handler is called whatever happens.
class KXCThumbnailRequest {
public:
    using Ref = std::shared_ptr<KXCThumbnailRequest>;

    KXCThumbnailRequest(std::shared_ptr<KXCThumbnailMaker> maker, KXCThumbnail thumbnail,
        kxmd_thumbnail_handler handler, void* userData);
    ~KXCThumbnailRequest();
    KXCThumbnailRequest(KXCThumbnailRequest const&) = delete;
    KXCThumbnailRequest& operator=(KXCThumbnailRequest const&) = delete;

    /// Submits `request` to its maker's queue, or throws; then its handler is never called.
    static void submit(Ref const& request);

    void cancel() { _isCancelled = true; }

private:
    bool isCancelled() const { return _isCancelled || _maker->isClosed; }
    void make() noexcept;
    static void post(std::unique_ptr<Ref> request) noexcept;
    void deliver() noexcept;

    std::shared_ptr<KXCThumbnailMaker> const _maker;
    KXCThumbnail const _thumbnail;
    kxmd_thumbnail_handler const _handler;
    void* const _userData;
    std::atomic<bool> _isCancelled { false };
    std::unique_ptr<kxmd_image> _image;
    kxmd_error* _error { nullptr };
};
