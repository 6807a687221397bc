#pragma once

#include <cstdlib>
#include <type_traits>

/// The number in the environment variable KXMD_MUTANT, or 0.
inline int activeMutant()
{
    static int const active = [] {
        char const* const number = std::getenv("KXMD_MUTANT");
        return number ? std::atoi(number) : 0;
    }();
    return active;
}

/// Never while the compiler calculates.
constexpr bool isActiveMutant(int number)
{
    return !std::is_constant_evaluated() && number == activeMutant();
}
