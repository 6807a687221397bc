#pragma once

#include "kxmd/platform/KXTaskRunner.h"

/// Programs of this machine. Where it has no audio converter of its own, the one that is installed
/// with the library stands in for it.
class KXLinuxTaskRunner final : public KXTaskRunner {
public:
    [[nodiscard]] std::optional<int> runToolAtPath(
        std::string const& path, std::vector<std::string> const& arguments) const override;
};
