#pragma once

#include "AudioFile.h"
#include "CoverPicture.h"
#include "FFmpegRefs.h"

#include <cstdint>
#include <optional>

/// Writes AAC into an MPEG-4 audio file whose header comes first.
class AudioWriter {
public:
    /// Takes audio as `source` decodes it, and writes it into the open `file`. Throws
    /// `ConversionError` when the file cannot be made.
    AudioWriter(int file, AVCodecContext const& source, std::int64_t bitRate);

    /// Adds the tags that the file does not have yet.
    void addTags(AVDictionary const* tags);
    /// Attaches a picture as cover, if this kind of file can hold one of its format.
    void addCover(CoverPicture cover);

    /// Writes what comes before the audio; tags and cover are there.
    void begin();
    void write(AVFrame const& frame);
    /// Writes what is left, and the header.
    void finish();

private:
    void openEncoder(AVCodecContext const& source, std::int64_t bitRate);
    void openResampler(AVCodecContext const& source);
    void resample(AVFrame const* frame);
    void encodeWholeFrames(bool isLast);
    void encode(AVFrame const* frame);

    AudioFile _file; // Outlives what writes it.
    OutputRef _output;
    CodecRef _encoder;
    ResamplerRef _resampler;
    FifoRef _samples; ///< Resampled and not encoded yet.
    AVFrameRef _resampled;
    AVFrameRef _frame;
    AVPacketRef _packet;
    AVStream* _audio { nullptr };
    AVStream* _coverStream { nullptr };
    std::optional<CoverPicture> _cover;
    std::int64_t _nextSample { 0 };
};
