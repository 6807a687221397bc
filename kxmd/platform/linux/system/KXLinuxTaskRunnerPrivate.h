#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/KXTaskRunner.h"

#include <memory>
#include <string>

/// Programs of this machine. Where it has no audio converter of its own, the one that is installed
/// with the library stands in for it.
class KXLinuxTaskRunner final : public KXTaskRunner {
public:
    struct KX_EXPORT_FOR_TESTS Converter {
        std::string path; ///< Where the machine has its own, if it has one.
        std::string standIn; ///< The path of ours.

        static Converter ofThisMachine();
        /// The path of the one that is used; empty when there is neither.
        std::string installedPath() const;
        /// A runner with this converter.
        std::shared_ptr<KXTaskRunner const> taskRunner() const;
    };

    explicit KXLinuxTaskRunner(Converter converter);

    [[nodiscard]] std::optional<int> runToolAtPath(
        std::string const& path, std::vector<std::string> const& arguments) const override;

private:
    bool isMissingConverter(std::string const& path) const;

    Converter const _converter;
};
