#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXGuarded.h"
#include "kxmd/base/KXSanitizersPrivate.h"
#include "kxmd/platform/KXDecodingLimits.h"
#include "kxmd/platform/linux/render/KXRenderMessagesPrivate.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

/// Bounds of what decoding one file may take.
struct KXRenderLimits {
    std::chrono::milliseconds time; ///< Until its process is killed.
    std::uint64_t memory; ///< Bytes.
    bool requiresConfinement { false };

    static KXRenderLimits forPictures(KXDecodingLimits const& limits = {})
    {
        return { limits.pictureTime * slowness, limits.memory, limits.requiresConfinement };
    }
    static KXRenderLimits forMovies(KXDecodingLimits const& limits = {})
    {
        return { limits.movieTime * slowness, limits.memory, limits.requiresConfinement };
    }

private:
    // Sanitizers take ten times as long.
#if KXMD_HAS_ADDRESS_SANITIZER || KXMD_HAS_THREAD_SANITIZER
    static constexpr int slowness = 10;
#else
    static constexpr int slowness = 1;
#endif
};

/// A process that decodes one file for us, or that will: whatever this object asks of it has to be
/// answered within the time it was given in all. It is killed when this object goes.
class KX_EXPORT_FOR_TESTS KXRenderTask {
public:
    KXRenderTask(KXFileDescriptor socket, std::chrono::milliseconds time)
        : _socket(std::move(socket))
        , _timeLeft(time)
    {
    }

    /// Waits for the next answer; absent when the process died, took too long or sent nonsense.
    std::optional<KXRenderMessage> answer();

    /// Asks a movie; absent as above.
    std::optional<KXRenderMessage> answerTo(KXRenderQuestion const& question);

private:
    KXFileDescriptor _socket;
    std::chrono::nanoseconds _timeLeft;
};

/// Our program that decodes untrusted files, each in a process of its own that it forks and that
/// can do nothing else. It is started at the first request, and anew when it ended: it does after a
/// minute without requests, and at once after this host. Where the system has no memory or no
/// descriptors left for a request, `std::bad_alloc` leaves it. Safe to call from several threads.
class KX_EXPORT_FOR_TESTS KXRenderServer {
public:
    /// With the path of the program.
    explicit KXRenderServer(std::string program);
    ~KXRenderServer();
    KXRenderServer(KXRenderServer const&) = delete;
    KXRenderServer& operator=(KXRenderServer const&) = delete;

    /// The first answer to a request about the next bytes of `data`, and the process that gave it.
    struct Reply {
        KXRenderTask task;
        KXRenderMessage message;
        KXRenderAnswer answer;
    };

    /// Asks about the next `request.length` bytes of `data`. Absent when it could not be asked, or
    /// could not be answered within the limits.
    std::optional<Reply> replyTo(
        KXRenderRequest request, KXAbstractData& data, KXRenderLimits const& limits) const;

    /// Asks about the bytes of a file in memory.
    std::optional<Reply> replyTo(
        KXRenderRequest request, int file, KXRenderLimits const& limits) const;

    /// What the server told of itself when it started; absent when it does not start.
    std::optional<KXRenderGreeting> greeting() const;

    /// Where one of our programs lies, seen from the library that this code is in.
    static std::string installedProgram(std::string_view name);

private:
    /// The way to a running server, of the process that started it.
    struct Connection {
        KXFileDescriptor socket;
        pid_t host { 0 };
        KXRenderGreeting greeting;

        bool isAlive() const;
    };

    std::shared_ptr<Connection const> connection(Connection const* broken) const;
    std::shared_ptr<Connection const> newConnection() const;
    bool canServe(Connection const* server, KXRenderLimits const& limits) const;
    void logOnce(char const* format, char const* word) const;

    std::string const _program;
    mutable KXGuarded<std::shared_ptr<Connection const>> _connection;
    mutable std::atomic<bool> _isLogged { false };
};
