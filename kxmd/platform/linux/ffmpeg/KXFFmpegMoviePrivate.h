#pragma once

#include "kxmd/platform/KXMovieLoader.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegInputPrivate.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegRefsPrivate.h"

/// A movie that FFmpeg plays. Decodes on the caller's thread alone.
class KXFFmpegMovie final : public KXMovie {
public:
    /// Null when `data` is neither a movie nor music, or cannot be opened.
    static std::unique_ptr<KXMovie> movieWithData(KXAbstractData& data);

    explicit KXFFmpegMovie(KXAbstractData& data);

    [[nodiscard]] double duration() const override;
    [[nodiscard]] KXImage::Ref imageAtTime(double seconds, KXSize maximumSize) override;
    [[nodiscard]] KXImage::Ref keyImageAtTime(double seconds, KXSize maximumSize) override;
    [[nodiscard]] KXData attachedPicture() const override;

private:
    bool open();
    bool knowsVideoStream() const;
    AVStream* bestVideoStream() const;
    bool openDecoder();

    bool startAtTime(double seconds);
    bool startWithoutIndex(double seconds);
    bool seekToTime(double seconds, int flags);
    bool readPacket(AVPacket& packet);
    bool decodeFrame(AVFrame& frame);
    double secondsAt(std::int64_t timeStamp) const;
    double timeOfFrame(AVFrame const& frame) const;
    KXImage::Ref imageOfShownFrame(AVFrame& frame, KXSize maximumSize) const;

    KXFFmpegInput _input; // Outlives the format, which reads it.
    AVFormatRef _format;
    AVStream* _video { nullptr }; // The format's; null for music.
    AVDecoderRef _decoder;
};
