#pragma once

#include "CoverPicture.h"
#include "FFmpegRefs.h"

#include <cstdint>
#include <optional>
#include <string>

/// Decodes the audio of a file from its start to its end.
class AudioReader {
public:
    /// Throws `ConversionError` when the file cannot be read or has no audio that can be decoded.
    explicit AudioReader(std::string const& path);

    /// The next frame; null at the end. Throws when the file is damaged or cut off: half of a song
    /// must not pass for a whole one.
    AVFrame const* nextFrame();

    AVCodecContext const& decoder() const { return *_decoder; }
    /// The tags of the file, with those of the audio after them.
    AVDictionary const* fileTags() const { return _input->metadata; }
    AVDictionary const* streamTags() const { return _audio->metadata; }
    /// The picture that is attached as cover.
    std::optional<CoverPicture> cover() const;

private:
    bool sendNextPacket();
    void checkLength() const;

    InputRef _input;
    AVStream* _audio { nullptr };
    CodecRef _decoder;
    PacketRef _packet;
    FrameRef _frame;
    std::int64_t _samples { 0 };
};
