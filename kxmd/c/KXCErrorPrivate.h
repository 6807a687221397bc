#pragma once

#include "kxmd/kxmd_c.h"

#include <string>
#include <system_error>
#include <utility>

struct kxmd_error {
    kxmd_error_code code { KXMD_ERROR_NONE };
    int systemError { 0 };
    std::string message {}; ///< Empty for those that are made without memory.
};

/// Why a function of the C interface fails. It is thrown, and becomes an error value where the
/// interface ends, as whatever else is thrown below: each function has to catch anyway.
class KXCFailure {
public:
    KXCFailure(kxmd_error_code code, std::string message, int systemError = 0)
        : _error { code, systemError, std::move(message) }
    {
    }

    kxmd_error const& error() const { return _error; }

    /// The system refused to read.
    static KXCFailure ofReading(std::error_code error);

private:
    kxmd_error _error;
};

/// Refuses an argument unless `isGood`; `problem` says what is wrong with it.
inline void KXCRequire(bool isGood, char const* problem)
{
    if (!isGood)
        throw KXCFailure(KXMD_ERROR_ARGUMENT, problem);
}

/// Stores what is being caught. Where there is no memory for that, the lack of it.
void KXCStoreCaughtIn(kxmd_error** error) noexcept;

/// A new handle with these fields, the caller's.
template <class Handle, class... Fields> Handle* KXCNew(Fields&&... fields)
{
    return new Handle { std::forward<Fields>(fields)... };
}

/// That something was cancelled; never freed.
kxmd_error const& KXCErrorOfCancelling();

/// What `work` returns; nothing, with the reason in `error`, when it throws.
template <class Work> auto KXCAnswer(kxmd_error** error, Work work) noexcept -> decltype(work())
{
    if (error)
        *error = nullptr;
    try {
        return work();
    } catch (...) {
        KXCStoreCaughtIn(error);
    }
    return {};
}
