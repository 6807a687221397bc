#include "kxmd/platform/linux/ffmpeg/KXFFmpegMoviePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegPicturePrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegProbePrivate.h"
#include "kxmd/platform/linux/render/KXMediaProbeTextPrivate.h"
#include "kxmd/platform/linux/render/program/KXForkServerPrivate.h"

#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

// Opens and decodes movies, and what pictures FFmpeg alone knows, each in a process of its own:
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

/// Codecs of the movies that people have, as far as FFmpeg was built with a decoder for them.
std::vector<std::string> decodersOfMovies()
{
    std::vector<std::string> names;
    for (AVCodecID const codec : { AV_CODEC_ID_AV1, AV_CODEC_ID_H263, AV_CODEC_ID_H264,
             AV_CODEC_ID_HEVC, AV_CODEC_ID_MJPEG, AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_MPEG4,
             AV_CODEC_ID_PRORES, AV_CODEC_ID_VC1, AV_CODEC_ID_VP8, AV_CODEC_ID_VP9 }) {
        if (avcodec_find_decoder(codec))
            names.push_back(avcodec_get_name(codec));
    }
    return names;
}

void serveMovie(KXAbstractData& data, KXRenderReply const& reply)
{
    auto const movie = KXFFmpegMovie::movieWithData(data);
    if (!movie)
        return reply.send({ .outcome = KXRenderAnswer::Outcome::unknown });
    reply.send({ .outcome = KXRenderAnswer::Outcome::done, .duration = movie->duration() });
    while (auto const question = reply.question())
        answer(*movie, *question, reply);
}

void serveProbe(KXAbstractData& data, KXRenderReply const& reply)
{
    auto const probe = mediaProbeByFFmpeg(data);
    reply.sendText(probe ? textOfMediaProbe(*probe) : "");
}

class MovieWork final : public KXRenderWork {
public:
    void warmUp() const override { av_log_set_level(AV_LOG_QUIET); }

    void serve(KXRenderRequest const& request, KXAbstractData& data,
        KXRenderReply const& reply) const override
    {
        switch (request.operation) {
        case KXRenderRequest::Operation::movie:
            return serveMovie(data, reply);
        case KXRenderRequest::Operation::picture:
            return reply.sendImageOf(
                data, pictureByFFmpeg(data, request.length, request.wantedSize()), request);
        case KXRenderRequest::Operation::formats:
            return reply.sendWords(decodersOfMovies());
        case KXRenderRequest::Operation::pictureFormats:
            return reply.sendWords(formatsOfPicturesByFFmpeg());
        case KXRenderRequest::Operation::probe:
            return serveProbe(data, reply);
        default:
            return reply.send({ .outcome = KXRenderAnswer::Outcome::unknown });
        }
    }
};

}

int main() { return runRenderServer(MovieWork()); }
