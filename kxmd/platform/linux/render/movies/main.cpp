#include "kxmd/platform/linux/ffmpeg/KXFFmpegMoviePrivate.h"
#include "kxmd/platform/linux/render/program/KXForkServerPrivate.h"

#include <memory>

extern "C" {
#include <libavutil/log.h>
}

// Opens and decodes movies for the library, each in a process of its own:
//
//     kxmd-render-movies
//
// It is started by the library, which talks to it over its standard output, a socket.

namespace {

void answer(KXMovie& movie, KXRenderQuestion const& question, KXRenderReply const& reply)
{
    KXSize const size { question.maximumWidth, question.maximumHeight };
    switch (question.kind) {
    case KXRenderQuestion::Kind::image:
        return reply.sendImage(movie.imageAtTime(question.seconds, size));
    case KXRenderQuestion::Kind::keyImage:
        return reply.sendImage(movie.keyImageAtTime(question.seconds, size));
    case KXRenderQuestion::Kind::attachedPicture:
        return reply.sendBytes(movie.attachedPicture().bytes());
    }
}

class MovieWork final : public KXRenderWork {
public:
    void warmUp() const override { av_log_set_level(AV_LOG_QUIET); }

    void serve(KXRenderRequest const& request, KXAbstractData& data,
        KXRenderReply const& reply) const override
    {
        bool const isOfMovies = request.operation == KXRenderRequest::Operation::movie;
        auto const movie = isOfMovies ? KXFFmpegMovie::movieWithData(data) : nullptr;
        if (!movie)
            return reply.send({ .outcome = KXRenderAnswer::Outcome::unknown });
        reply.send({ .outcome = KXRenderAnswer::Outcome::done, .duration = movie->duration() });
        while (auto const question = reply.question())
            answer(*movie, *question, reply);
    }
};

}

int main() { return runRenderServer(MovieWork()); }
