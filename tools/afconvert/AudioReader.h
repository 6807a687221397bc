#pragma once

#include "CoverPicture.h"
#include "FFmpegRefs.h"
#include "kxmd/platform/linux/ffmpeg/KXFFmpegInputPrivate.h"

#include <cstdint>
#include <optional>

/// Decodes the audio of a file from its start to its end.
class AudioReader {
public:
    /// Throws `ConversionError` when the file cannot be read or has no audio that can be decoded.
    explicit AudioReader(KXAbstractData& data);

    /// The next frame; null at the end. Throws when the file is damaged or cut off: half of a song
    /// must not pass for a whole one.
    AVFrame const* nextFrame();

    /// How much has been decoded, in seconds.
    double secondsDecoded() const;

    AVCodecContext const& decoder() const { return *_decoder; }
    /// The tags of the file, with those of the audio after them.
    AVDictionary const* fileTags() const { return _input->metadata; }
    AVDictionary const* streamTags() const { return _audio->metadata; }
    /// The picture that is attached as cover.
    std::optional<CoverPicture> cover() const;

private:
    bool sendNextPacket();
    void checkLength() const;

    KXFFmpegInput _file; // Outlives the format, which reads it.
    AVFormatRef _input;
    AVStream* _audio { nullptr };
    CodecRef _decoder;
    AVPacketRef _packet;
    AVFrameRef _frame;
    std::int64_t _samples { 0 };
};
