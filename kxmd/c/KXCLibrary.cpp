#include "kxmd/base/KXLog.h"
#include "kxmd/c/KXCErrorPrivate.h"
#include "kxmd/version.h"

char const* kxmd_version() noexcept { return KXVersion(); }

int kxmd_version_number() noexcept { return KXVersionNumber(); }

bool kxmd_set_log_handler(kxmd_log_handler handler, void* userData, kxmd_error** error) noexcept
{
    return KXCAnswer(error, [&] {
        KXLogSink sink;
        if (handler) {
            sink = [handler, userData](std::string_view category, std::string_view text) {
                handler(std::string(category).c_str(), std::string(text).c_str(), userData);
            };
        }
        KXSetLogSink(std::move(sink));
        return true;
    });
}
