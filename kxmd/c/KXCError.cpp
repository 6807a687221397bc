#include "kxmd/c/KXCErrorPrivate.h"

#include "shared/SourceFile.h"

#include <exception>
#include <new>

namespace {

// These take no memory, and nobody frees them.
kxmd_error lackOfMemory { .code = KXMD_ERROR_MEMORY };
kxmd_error cancelling { .code = KXMD_ERROR_CANCELLED };

bool isNeverFreed(kxmd_error const* error)
{
    return error == &lackOfMemory || error == &cancelling;
}

/// What is being caught, but for a lack of memory.
kxmd_error* newErrorOfCaught()
{
    try {
        throw;
    } catch (KXCFailure const& failure) {
        return new kxmd_error(failure.error());
    } catch (std::bad_alloc const&) {
        throw;
    } catch (std::exception const& exception) {
        return new kxmd_error { .code = KXMD_ERROR_INTERNAL, .message = exception.what() };
    } catch (...) {
        return new kxmd_error { .code = KXMD_ERROR_INTERNAL, .message = "something is wrong" };
    }
}

}

KXCFailure KXCFailure::ofReading(std::error_code error)
{
    return { KXMD_ERROR_READ, problemOfReading(error), error.value() };
}

void KXCStoreCaughtIn(kxmd_error** error) noexcept
{
    if (!error)
        return;
    try {
        *error = newErrorOfCaught();
    } catch (...) {
        *error = &lackOfMemory;
    }
}

kxmd_error const& KXCErrorOfCancelling() { return cancelling; }

kxmd_error_code kxmd_error_get_code(kxmd_error const* error) noexcept
{
    return error ? error->code : KXMD_ERROR_NONE;
}

int kxmd_error_get_errno(kxmd_error const* error) noexcept
{
    return error ? error->systemError : 0;
}

char const* kxmd_error_get_message(kxmd_error const* error) noexcept
{
    if (error == &lackOfMemory)
        return "there is not enough memory";
    if (error == &cancelling)
        return "was cancelled";
    return error ? error->message.c_str() : "";
}

void kxmd_error_free(kxmd_error* error) noexcept
{
    if (!isNeverFreed(error))
        delete error;
}
