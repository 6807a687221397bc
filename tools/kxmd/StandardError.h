#pragma once

#include <kxmd/base/KXGuarded.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

/// Standard error: lines that stay, and on a terminal one line below them, the status, that is
/// drawn over itself. Safe on several threads, since the library logs from wherever it works.
class StandardError {
public:
    /// Writes whole lines, above the status if there is one.
    void writeLines(std::string_view lines);

    /// Shows one line of printable ASCII in place of the status before; an empty one erases that.
    void showStatus(std::string status);

    /// How many columns a status may have: 0 when none can be seen.
    std::size_t statusWidth() const;

    /// Shows no status from now on.
    void hideStatus() { _isQuiet = true; }

    /// Shows nothing at all from now on, without waiting for whoever is writing.
    void fallSilent() { _isSilent = true; }
    bool isSilent() const { return _isSilent; }

    /// Runs `write`, which writes to the terminal in another way, while the status is erased.
    template <class Write> auto withoutStatus(Write write)
    {
        auto const status = _status.lock();
        Gap const gap(*status);
        return write();
    }

private:
    /// Erases a status for as long as it lives.
    class Gap {
    public:
        explicit Gap(std::string const& status);
        ~Gap();
        Gap(Gap const&) = delete;
        Gap& operator=(Gap const&) = delete;

    private:
        std::string const& _status;
    };

    KXGuarded<std::string> _status;
    bool _isQuiet { false };
    std::atomic<bool> _isSilent { false };
};
