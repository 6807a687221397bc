#include "kxmd/c/KXCBytesPrivate.h"

void const* kxmd_bytes_get_data(kxmd_bytes const* bytes) noexcept
{
    return bytes && bytes->data.length() ? bytes->data.bytes().data() : nullptr;
}

size_t kxmd_bytes_get_length(kxmd_bytes const* bytes) noexcept
{
    return bytes ? bytes->data.bytes().size() : 0;
}

void kxmd_bytes_free(kxmd_bytes* bytes) noexcept { delete bytes; }
