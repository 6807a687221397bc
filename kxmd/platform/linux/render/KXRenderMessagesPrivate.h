#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSize.h"
#include "kxmd/platform/linux/system/KXFileDescriptorPrivate.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <type_traits>
#include <vector>

// What the host and the render server tell each other, over sockets that keep messages apart
// (SOCK_SEQPACKET). Both are of one version and one machine, so structures go as they are.

/// What a server says once it is ready to serve.
struct KXRenderGreeting {
    bool isConfinedToReading; ///< By Landlock.
    bool canBeConfinedToComputing; ///< By seccomp, which the processes that it forks are.
};

/// What is asked of the server, together with two open files: the one to be decoded or encoded, and
/// the socket for the answer.
struct KXRenderRequest {
    enum class Operation : std::uint32_t {
        picture, ///< Answers with the pixels of the picture in the file.
        drawing, ///< Answers with the pixels of the drawing in the file, in the wanted size.
        jpg, ///< Answers with a JPEG file of the pixels in the file.
        png, ///< Answers with a PNG file of them.
        movie, ///< Opens the movie in the file, and then answers questions about it.
        formats, ///< Answers with the names of what it can decode, each followed by a space.
        pictureFormats, ///< Answers with the names of the pictures that a decoder of movies knows.
        probe, ///< Answers with what media the file is, as `textOfMediaProbe` writes it.
    };

    /// What of a picture is wanted.
    enum class Shape : std::uint32_t {
        whole, ///< All of it; neither side smaller than the wanted size, unless it is stored so.
        fitting, ///< All of it, shrunk until it fits in the wanted size.
        square, ///< Its largest centred square, stretched to the wanted size.
    };

    Operation operation { Operation::picture };
    Shape shape { Shape::whole };
    std::uint32_t width { 0 }; ///< Of the pixels that are to be encoded.
    std::uint32_t height { 0 };
    std::uint32_t seconds { 0 }; ///< Of processor time, until it is over.
    std::uint64_t start { 0 }; ///< Where the picture begins in the file.
    std::uint64_t length { 0 }; ///< Its bytes, which may be more than the file has.
    std::uint64_t memory { 0 }; ///< The most bytes that may be added to what the server has.
    double wantedWidth { 0 }; ///< In points; 0 for as many as there are.
    double wantedHeight { 0 };

    [[nodiscard]] KXSize wantedSize() const { return { wantedWidth, wantedHeight }; }
    [[nodiscard]] std::optional<KXSize> square() const
    {
        return shape == Shape::square ? std::optional(wantedSize()) : std::nullopt;
    }
    /// What decoders are asked for: the resampler shrinks better than they do.
    [[nodiscard]] KXSize decodedSize() const
    {
        double const factor = shape == Shape::square ? 2 : 1;
        return { wantedWidth * factor, wantedHeight * factor };
    }
};

/// A question about an opened movie.
struct KXRenderQuestion {
    enum class Kind : std::uint32_t { image, keyImage, attachedPicture };

    Kind kind { Kind::image };
    double seconds { 0 };
    double maximumWidth { 0 };
    double maximumHeight { 0 };
};

/// What comes back, with the pixels or the bytes in a sealed file in memory.
struct KXRenderAnswer {
    enum class Outcome : std::uint32_t {
        done,
        unknown, ///< The file is of no kind that is known, or has nothing of what is asked for.
        failed, ///< It is too large, or there was no memory.
    };

    Outcome outcome { Outcome::failed };
    std::uint32_t width { 0 };
    std::uint32_t height { 0 };
    std::uint64_t length { 0 }; ///< The bytes of the file in memory.
    double duration { 0 }; ///< Of a movie, in seconds.
};

/// A message as it came, with the files that came with it.
struct KXRenderMessage {
    std::vector<std::byte> bytes;
    std::vector<KXFileDescriptor> files;

    /// The structure that it is; absent when it is of another length.
    template <class Structure> std::optional<Structure> as() const
    {
        static_assert(std::is_trivially_copyable_v<Structure>);
        if (bytes.size() != sizeof(Structure))
            return std::nullopt;
        Structure structure;
        __builtin_memcpy(&structure, bytes.data(), sizeof structure);
        return structure;
    }
};

/// Sends a message with open files; false when nobody is there to receive it.
KX_EXPORT_FOR_TESTS bool sendRenderMessage(
    int socket, std::span<std::byte const> bytes, std::span<int const> files);

template <class Structure>
bool sendRenderMessage(int socket, Structure const& structure, std::span<int const> files = {})
{
    static_assert(std::is_trivially_copyable_v<Structure>);
    return sendRenderMessage(socket, std::as_bytes(std::span(&structure, 1)), files);
}

/// Waits for a message; absent when the other side is gone or sends what is no message of ours.
KX_EXPORT_FOR_TESTS std::optional<KXRenderMessage> receiveRenderMessage(int socket);
