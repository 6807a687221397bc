#include "kxmd/platform/linux/render/KXRenderMovieLoaderPrivate.h"

#include "kxmd/platform/linux/render/KXMediaProbeTextPrivate.h"
#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

/// A movie in a process of its own. All that it is asked shares one deadline.
class RenderedMovie final : public KXMovie {
public:
    RenderedMovie(KXRenderTask task, double duration)
        : _task(std::move(task))
        , _duration(std::isfinite(duration) ? std::max(duration, 0.0) : 0)
    {
    }

    [[nodiscard]] double duration() const override { return _duration; }

    [[nodiscard]] KXImage::Ref imageAtTime(double seconds, KXSize maximumSize) override
    {
        return imageFor(KXRenderQuestion::Kind::image, seconds, maximumSize);
    }

    [[nodiscard]] KXImage::Ref keyImageAtTime(double seconds, KXSize maximumSize) override
    {
        return imageFor(KXRenderQuestion::Kind::keyImage, seconds, maximumSize);
    }

    [[nodiscard]] KXData attachedPicture() const override
    {
        auto const message = _task.answerTo({ .kind = KXRenderQuestion::Kind::attachedPicture });
        auto const answer = message ? message->as<KXRenderAnswer>() : std::nullopt;
        return answer ? bytesOfAnswer(*message, *answer) : KXData();
    }

private:
    KXImage::Ref imageFor(KXRenderQuestion::Kind kind, double seconds, KXSize maximumSize)
    {
        auto const message
            = _task.answerTo({ kind, seconds, maximumSize.width, maximumSize.height });
        auto const answer = message ? message->as<KXRenderAnswer>() : std::nullopt;
        return answer ? imageOfAnswer(*message, *answer) : nullptr;
    }

    mutable KXRenderTask _task; // Asking it is not a change of the movie.
    double const _duration;
};

}

KXRenderMovieLoader::KXRenderMovieLoader(
    std::shared_ptr<KXRenderServer const> server, KXRenderLimits limits)
    : _server(std::move(server))
    , _limits(limits)
{
}

std::unique_ptr<KXMovie> KXRenderMovieLoader::movieWithData(KXAbstractData& data) const
{
    data.setOffset(0);
    KXRenderRequest const request { .operation = KXRenderRequest::Operation::movie,
        .length = data.length() };
    auto reply = _server->replyTo(request, data, _limits);
    if (!reply || reply->answer.outcome != KXRenderAnswer::Outcome::done)
        return nullptr;
    return std::make_unique<RenderedMovie>(std::move(reply->task), reply->answer.duration);
}

std::optional<KXMediaProbe> KXRenderMovieLoader::mediaProbeWithData(KXAbstractData& data) const
{
    data.setOffset(0);
    KXRenderRequest const request { .operation = KXRenderRequest::Operation::probe,
        .length = data.length() };
    auto const reply = _server->replyTo(request, data, _limits);
    if (!reply || reply->answer.length > longestMediaProbeText)
        return std::nullopt;
    return mediaProbeOfText(textOfAnswer(reply->message, reply->answer));
}
