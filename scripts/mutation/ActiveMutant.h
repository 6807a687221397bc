#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <unistd.h>

/// The number in KXMD_MUTANT, or 0. Programs that get no environment look for it in their
/// starter's.
inline int numberOfActiveMutant()
{
    constexpr char const* name = "KXMD_MUTANT";
    if (char const* const number = std::getenv(name))
        return std::atoi(number);
    std::FILE* const environment
        = std::fopen(("/proc/" + std::to_string(::getppid()) + "/environ").c_str(), "re");
    int number = 0;
    char* variable = nullptr;
    std::size_t capacity = 0;
    while (environment && ::getdelim(&variable, &capacity, '\0', environment) > 0) {
        std::size_t const length = std::strlen(name);
        if (std::strncmp(variable, name, length) == 0 && variable[length] == '=')
            number = std::atoi(variable + length + 1);
    }
    std::free(variable);
    if (environment)
        std::fclose(environment);
    return number;
}

/// Looked up while a program starts: later it may be confined.
[[gnu::visibility("hidden")]] inline int const activeMutant = numberOfActiveMutant();

/// Never while the compiler calculates.
constexpr bool isActiveMutant(int number)
{
    return !std::is_constant_evaluated() && number == activeMutant;
}
