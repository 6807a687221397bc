#pragma once

#include "kxmd/base/KXExport.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct KXPlatform;

/// One stream of a media file. What does not apply, or is not known, is 0 or empty.
struct KXMediaStream {
    /// What a stream holds.
    enum class Kind : std::uint8_t {
        video, ///< Moving pictures.
        audio, ///< Sound.
        subtitle, ///< Text or pictures shown over a video.
        other, ///< Such as chapters or measurements.
    };

    Kind kind { Kind::other }; ///< By which the fields below apply or do not.
    std::string codec; ///< A short name in lower case, such as "flac", "h264" or "pcm_s16le".
    std::string profile; ///< As the codec's standard names it, such as "LC" or "High".
    std::string language; ///< ISO 639-2, such as "eng".
    std::uint64_t bitRate { 0 }; ///< In bit/s.

    std::uint32_t sampleRate { 0 }; ///< In Hz.
    std::uint32_t channels { 0 }; ///< Of sound.
    std::uint32_t bits { 0 }; ///< Of a sample, or of a component of a pixel.

    std::uint32_t width { 0 }; ///< In pixels, as they are stored.
    std::uint32_t height { 0 }; ///< Likewise.
    double frameRate { 0 }; ///< Frames a second: on average, or the least that fits them all.
    std::uint32_t rotation { 0 }; ///< Degrees clockwise by which frames are turned to be shown.

    bool operator==(KXMediaStream const&) const = default;
};

/// A picture that is embedded in a media file.
struct KXMediaPicture {
    std::string kind; ///< "front", "back", "artist" and the like, or "other" (ID3v2.4 APIC, 4.14).
    std::string type; ///< Its media type, such as "image/jpeg"; empty when it is not known.
    std::uint32_t width { 0 }; ///< In pixels; 0 when its headers are damaged.
    std::uint32_t height { 0 }; ///< Likewise.
    std::uint64_t bytes { 0 }; ///< Of its file, as it is embedded.

    bool operator==(KXMediaPicture const&) const = default;
};

/// What the movie library finds in a file of any kind that it plays: FLAC, Ogg, Opus, WAV, AIFF,
/// WMA, Matroska, AVI, transport streams, and MP3 and MP4 as others see them. The metadata objects
/// read MP3 and MP4 themselves, faster, and may answer differently.
struct KX_EXPORT KXMediaProbe {
    std::string container; ///< A short name in lower case, such as "flac", "matroska" or "mp4".
    double duration { 0 }; ///< In seconds; 0 when it is not known.
    std::vector<KXMediaStream> streams; ///< Without embedded pictures.
    std::vector<KXMediaPicture> pictures; ///< Those that are embedded.

    /// Of the whole file, in UTF-8, by the names "album", "album_artist", "artist", "comment",
    /// "composer", "copyright", "date", "description", "disc", "encoder", "episode_id", "genre",
    /// "performer", "publisher", "season_number", "show", "title" and "track". Texts of more than
    /// 4096 bytes are cut.
    std::map<std::string, std::string> tags;

    bool operator==(KXMediaProbe const&) const = default;

    /// `probeWithSourcePath:platform:` Looks into the file at `path`, on the calling thread; the
    /// movie library works in a process of its own, within the platform's limits.
    ///
    /// Absent when the file cannot be read, when nobody knows what it is, or when there is no movie
    /// library. A null platform is the process-wide one.
    [[nodiscard]] static std::optional<KXMediaProbe> probeWithSourcePath(
        std::string const& path, std::shared_ptr<KXPlatform const> platform = nullptr);

    /// Receives what was found; absent in the cases above.
    using Handler = std::function<void(std::optional<KXMediaProbe> probe)>;

    /// `probeWithSourcePath:platform:handler:` The same on a thread of the library's own; `handler`
    /// is called exactly once, on the platform's main queue. Files are looked into one by one, in
    /// the order of the requests.
    static void probeWithSourcePath(
        std::string path, std::shared_ptr<KXPlatform const> platform, Handler handler);
};
