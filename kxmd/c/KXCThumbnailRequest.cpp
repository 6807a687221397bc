#include "kxmd/c/KXCThumbnailsPrivate.h"

#include <utility>

KXCThumbnailRequest::KXCThumbnailRequest(std::shared_ptr<KXCThumbnailMaker> maker,
    KXCThumbnail thumbnail, kxmd_thumbnail_handler handler, void* userData)
    : _maker(std::move(maker))
    , _thumbnail(std::move(thumbnail))
    , _handler(handler)
    , _userData(userData)
    , _image(std::make_unique<kxmd_image>())
{
}

KXCThumbnailRequest::~KXCThumbnailRequest() { kxmd_error_free(_error); }

void KXCThumbnailRequest::submit(Ref const& request)
{
    // Shared, since a function holds only what can be copied.
    auto const posted = std::make_shared<std::unique_ptr<Ref>>(std::make_unique<Ref>(request));
    request->_maker->queue.async([posted] {
        (**posted)->make();
        post(std::move(*posted));
    });
}

void KXCThumbnailRequest::make() noexcept
{
    if (isCancelled())
        return;
    _image->image = KXCAnswer(&_error, [this] { return _thumbnail.makeWith(*_maker->controller); });
}

/// Has the handler called in the host's event loop, or calls it.
void KXCThumbnailRequest::post(std::unique_ptr<Ref> request) noexcept
{
    auto const maker = (*request)->_maker; // The loop may be done with the request first.
    if (!maker->post) {
        (*request)->deliver();
        return;
    }
    maker->post(
        [](void* context) {
            std::unique_ptr<Ref> const delivered(static_cast<Ref*>(context));
            (*delivered)->deliver();
        },
        request.release(), maker->userData);
}

void KXCThumbnailRequest::deliver() noexcept
{
    if (isCancelled())
        _handler(nullptr, &KXCErrorOfCancelling(), _userData);
    else if (_image->image)
        _handler(_image.release(), nullptr, _userData);
    else
        _handler(nullptr, _error, _userData);
}
