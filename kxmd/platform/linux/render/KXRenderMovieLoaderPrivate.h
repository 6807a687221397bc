#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXMovieLoader.h"
#include "kxmd/platform/linux/render/KXRenderServerPrivate.h"

#include <memory>

/// Movies, each opened and decoded in a process of a render server that lives as long as the movie.
class KX_EXPORT_FOR_TESTS KXRenderMovieLoader final : public KXMovieLoader {
public:
    KXRenderMovieLoader(std::shared_ptr<KXRenderServer const> server, KXRenderLimits limits);

    [[nodiscard]] std::unique_ptr<KXMovie> movieWithData(KXAbstractData& data) const override;
    [[nodiscard]] std::optional<KXMediaProbe> mediaProbeWithData(
        KXAbstractData& data) const override;

private:
    std::shared_ptr<KXRenderServer const> const _server;
    KXRenderLimits const _limits;
};
