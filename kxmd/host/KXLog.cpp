#include "kxmd/host/KXLog.h"

#include "kxmd/host/KXGuarded.h"

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>
#include <unistd.h>

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

KXGuarded<KXLogSink>& sharedSink()
{
    // Never destroyed: threads may log while the process exits.
    static auto& sink = *new KXGuarded<KXLogSink>(writeLineToStandardError);
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

void KXLog(char const* category, char const* format, ...)
{
    if (!enabled.load(std::memory_order_relaxed))
        return;
    std::va_list arguments;
    va_start(arguments, format);
    std::string const text = formattedText(format, arguments);
    va_end(arguments);

    auto const sink = sharedSink().lock();
    if (*sink)
        (*sink)(category, text);
}

void setLogSink(KXLogSink sink)
{
    enabled.store(sink != nullptr, std::memory_order_relaxed);
    sharedSink().store(std::move(sink));
}
