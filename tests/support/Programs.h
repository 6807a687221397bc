#pragma once

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

/// Whether a program of others is there to be asked.
inline bool isInstalled(std::string const& program)
{
    return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

/// What a command of the shell writes to its standard output.
inline std::string outputOf(std::string const& command)
{
    std::unique_ptr<FILE, int (*)(FILE*)> const pipe(popen(command.c_str(), "r"), &pclose);
    std::string output;
    std::array<char, 4096> piece;
    while (pipe) {
        std::size_t const count = fread(piece.data(), 1, piece.size(), pipe.get());
        output.append(piece.data(), count);
        if (!count)
            break;
    }
    return output;
}
