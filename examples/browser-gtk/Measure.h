#pragma once

#include "../browser/MeasuredRun.h"
#include "Browser.h"

/// Measures the main loop of GLib, and lets `run` drive a browser's window from frame to frame.
/// Made once, and kept until the loop has ended.
class Measure {
public:
    Measure(std::shared_ptr<Browser> const& browser, MeasuredRun& run);
    ~Measure();
    Measure(Measure const&) = delete;
    Measure& operator=(Measure const&) = delete;

private:
    class Window;

    std::unique_ptr<Window> const _window;
};
