#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// Collects the library's log lines for as long as it lives, instead of standard error.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    /// The lines so far, each as "category: text".
    std::vector<std::string> lines() const;

private:
    struct Lines {
        std::mutex mutex;
        std::vector<std::string> texts;
    };
    std::shared_ptr<Lines> _lines;
};
