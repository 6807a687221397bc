#include "ProgressBar.h"

#include "StandardError.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

namespace {

using std::chrono::seconds;

constexpr std::chrono::milliseconds shortestPause { 100 };
constexpr seconds timeToEstimate { 1 }; // Before that, the time left is a wild guess.

/// "3:07", or "1:03:07" from an hour on.
std::string textOfTime(seconds time)
{
    auto const count = static_cast<long long>(time.count());
    std::array<char, 32> text;
    if (count < 3600)
        std::snprintf(text.data(), text.size(), "%lld:%02lld", count / 60, count % 60);
    else
        std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld", count / 3600, count / 60 % 60,
            count % 60);
    return text.data();
}

/// "1.2 of 34.5 MB", in a unit that suits the total.
std::string textOfBytes(std::uint64_t done, std::uint64_t total)
{
    constexpr std::array<std::string_view, 5> units { "B", "kB", "MB", "GB", "TB" };
    std::size_t unit = 0;
    double scale = 1;
    while (unit + 1 < units.size() && static_cast<double>(total) >= 1000 * scale) {
        scale *= 1000;
        ++unit;
    }
    int const decimals = unit ? 1 : 0;
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "%.*f of %.*f ", decimals,
        static_cast<double>(done) / scale, decimals, static_cast<double>(total) / scale);
    return std::string(text.data()).append(units[unit]);
}

/// "[====>    ]", of `width` columns.
std::string barOfWidth(std::size_t width, double part)
{
    std::size_t const inside = width - 2;
    auto const filled = static_cast<std::size_t>(static_cast<double>(inside) * part);
    std::string bar = "[" + std::string(filled, '=');
    if (filled < inside)
        bar.append(">").append(inside - filled - 1, ' ');
    return bar + "]";
}

}

ProgressBar::ProgressBar(StandardError& output, std::string unit, Amount total)
    : _output(output)
    , _unit(std::move(unit))
    , _total(total)
{
    draw(*_state.lock(), _start);
}

ProgressBar::~ProgressBar()
{
    if (_output.statusWidth())
        _output.showStatus({});
}

void ProgressBar::advanceBy(Amount done)
{
    auto const state = _state.lock();
    state->done.items += done.items;
    state->done.bytes += done.bytes;
    auto const now = Clock::now();
    if (now - state->lastDrawing >= shortestPause)
        draw(*state, now);
}

void ProgressBar::draw(State& state, Clock::time_point now)
{
    constexpr std::size_t shortestBar = 10;
    constexpr std::size_t longestBar = 40;
    state.lastDrawing = now;
    std::size_t const width = _output.statusWidth();
    if (!width)
        return;
    std::string status = textAt(now, state.done);
    if (width > status.size() + shortestBar)
        status = barOfWidth(std::min(longestBar, width - status.size() - 1), partOf(state.done))
            + " " + status;
    _output.showStatus(status.substr(0, width));
}

/// By bytes, where they are known: files differ in length.
double ProgressBar::partOf(Amount done) const
{
    auto const [part, whole]
        = _total.bytes ? std::pair(done.bytes, _total.bytes) : std::pair(done.items, _total.items);
    return whole ? std::min(1.0, static_cast<double>(part) / static_cast<double>(whole)) : 1;
}

std::string ProgressBar::textAt(Clock::time_point now, Amount done) const
{
    std::string text
        = std::to_string(done.items) + " of " + std::to_string(_total.items) + " " + _unit;
    if (_total.bytes)
        text += ", " + textOfBytes(done.bytes, _total.bytes);
    auto const elapsed = now - _start;
    double const part = partOf(done);
    if (elapsed >= timeToEstimate && part > 0 && part < 1) {
        auto const left = std::chrono::ceil<seconds>(elapsed * ((1 - part) / part));
        text += ", " + textOfTime(left) + " left";
    }
    return text;
}
