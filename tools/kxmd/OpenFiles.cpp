#include "OpenFiles.h"

#include <algorithm>
#include <sys/resource.h>

std::size_t filesToHoldOpen()
{
    constexpr rlim_t most = 4096, fewest = 1;
    rlimit limit { .rlim_cur = fewest, .rlim_max = fewest };
    ::getrlimit(RLIMIT_NOFILE, &limit);
    rlimit const raised { .rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, most)),
        .rlim_max = limit.rlim_max };
    rlim_t const allowed
        = ::setrlimit(RLIMIT_NOFILE, &raised) == 0 ? raised.rlim_cur : limit.rlim_cur;
    return std::clamp(allowed / 4, fewest, most / 2); // The rest is for everything else.
}
