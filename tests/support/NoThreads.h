#pragma once

/// While one of these lives the system has no thread to give to this program.
class NoThreads {
public:
    NoThreads();
    ~NoThreads();
    NoThreads(NoThreads const&) = delete;
    NoThreads& operator=(NoThreads const&) = delete;
};
