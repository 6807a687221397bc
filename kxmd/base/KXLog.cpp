#include "kxmd/base/KXLog.h"

#include "kxmd/base/KXGuarded.h"

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>

namespace {

void writeLineToStandardError(std::string_view category, std::string_view text)
{
    std::string line;
    line.append("[").append(category).append("] ").append(text).append("\n");
    // One write keeps lines of several threads and processes whole. Nobody can be told of a
    // failure.
    [[maybe_unused]] auto const written = ::write(STDERR_FILENO, line.data(), line.size());
}

std::atomic<bool> enabled { true };

using SinkRef = std::shared_ptr<KXLogSink const>;

/// Null while logging is off.
KXGuarded<SinkRef>& sharedSink()
{
    // Never destroyed: threads may log while the process exits.
    static auto& sink
        = *new KXGuarded<SinkRef>(std::make_shared<KXLogSink const>(writeLineToStandardError));
    return sink;
}

std::string formattedText(char const* format, std::va_list arguments)
{
    std::va_list measured;
    va_copy(measured, arguments);
    int const length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0)
        return format;
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

}

void KXLog(char const* category, char const* format, ...) noexcept
{
    if (!enabled.load(std::memory_order_relaxed))
        return;
    std::va_list arguments;
    va_start(arguments, format);
    try {
        std::string const text = formattedText(format, arguments);
        if (SinkRef const sink = sharedSink().load())
            (*sink)(category, text);
    } catch (...) {
        // The line is lost: whoever logs goes on as if it had been written.
    }
    va_end(arguments);
}

void KXSetLogSink(KXLogSink sink)
{
    auto shared = sink ? std::make_shared<KXLogSink const>(std::move(sink)) : nullptr;
    auto access = sharedSink().lock();
    enabled.store(shared != nullptr, std::memory_order_relaxed);
    access->swap(shared); // The old sink is destroyed after the lock is left.
}
