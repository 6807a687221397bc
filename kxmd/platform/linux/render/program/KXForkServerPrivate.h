#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/platform/linux/render/KXRenderMessagesPrivate.h"

#include <ctime>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The way back to the host, of a process that serves one file.
class KXRenderReply {
public:
    explicit KXRenderReply(int socket)
        : _socket(socket)
    {
    }

    /// Sends an answer by itself.
    void send(KXRenderAnswer const& answer) const;
    /// Sends a picture; null for `unknown`.
    void sendImage(KXImage::Ref const& image) const;
    /// Sends the picture of a file in the shape that is asked for; `failed` when the system did not
    /// let all of it be read, so that half a picture is not taken for a whole one.
    void sendImageOf(KXAbstractData const& data, KXImage::Ref const& image,
        KXRenderRequest const& request) const;
    /// Sends bytes; none for `unknown`.
    void sendBytes(std::span<std::uint8_t const> bytes) const;
    /// Sends a text; an empty one for `unknown`.
    void sendText(std::string_view text) const;
    /// Sends names, each followed by a space.
    void sendWords(std::vector<std::string> const& words) const;
    /// The socket itself, which is not this object's own.
    [[nodiscard]] int socket() const { return _socket; }
    /// Waits for the next question; absent when the host has no more.
    std::optional<KXRenderQuestion> question() const;

private:
    void send(KXRenderAnswer answer, std::span<std::uint8_t const> content) const;

    int const _socket;
};

/// What a render server does with a file.
class KXRenderWork {
public:
    virtual ~KXRenderWork() = default;

    /// Loads what every file needs. Called once, before any file and with all rights over files.
    virtual void warmUp() const = 0;

    /// Serves a request, in a process of its own that can do little else. `data` stands where the
    /// picture begins.
    virtual void serve(
        KXRenderRequest const& request, KXAbstractData& data, KXRenderReply const& reply) const = 0;
};

/// Serves the host on the other end of standard output, until it is gone or asks no more for as
/// long as `longestIdleness`: forks a process for each request, and kills it when the host wants it
/// no more. The status to exit with.
int runRenderServer(KXRenderWork const& work, timespec longestIdleness = { 60, 0 });
