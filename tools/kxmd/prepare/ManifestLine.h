#pragma once

#include "ManifestEntry.h"
#include "NameRules.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The lines of a manifest, each an object of JSON with its line end.

std::string manifestLineOf(ManifestEntry const& entry);
std::string manifestLineOf(NameRules const& rules);
/// Says that the file at `target` was removed.
std::string manifestLineOfRemoved(std::string const& target);

/// What a line says.
struct ManifestLine {
    static constexpr std::int64_t currentVersion = 1;

    ManifestEntry entry; ///< Without a target in a line of rules.
    bool isRemoval { false };
    std::optional<NameRules> rules {};
    std::int64_t version { currentVersion }; ///< Of the form, in a line of rules.
};

/// What a line says; absent when it is not an object of JSON. A value of another type than ours is
/// no value.
std::optional<ManifestLine> manifestLineIn(std::string_view line);
