#include "support/LogCapture.h"

#include "kxmd/base/KXLog.h"

#include <cstdio>

LogCapture::LogCapture()
    : _lines(std::make_shared<Lines>())
{
    KXSetLogSink([lines = _lines](std::string_view category, std::string_view text) {
        std::scoped_lock const lock(lines->mutex);
        lines->texts.push_back(std::string(category) + ": " + std::string(text));
    });
}

LogCapture::~LogCapture()
{
    KXSetLogSink([](std::string_view category, std::string_view text) {
        std::fprintf(stderr, "[%.*s] %.*s\n", static_cast<int>(category.size()), category.data(),
            static_cast<int>(text.size()), text.data());
    });
}

std::vector<std::string> LogCapture::lines() const
{
    std::scoped_lock const lock(_lines->mutex);
    return _lines->texts;
}
