#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// What a folder's file system makes of names: that of a card refuses characters that one of a
/// computer takes.
struct NameRules {
    /// What file systems of cards refuse; U+0001 stands for all controls.
    static constexpr std::string_view candidates = "\\:*?\"<>|\001";

    std::string refused; ///< Those of them that no name may hold.
    bool refusesEnds { false }; ///< Whether a name cannot end with a dot or a space.
    bool refusesDevices { false }; ///< Whether a name cannot be "con", "nul" and the like.
    bool refusesBytes { false }; ///< Whether a name must be UTF-8.
    bool tellsCase { true }; ///< Whether names that differ in case alone are two.
    std::size_t longest { 255 }; ///< Bytes of a name.

    bool operator==(NameRules const&) const = default;
};

/// Those of a card, FAT or exFAT: of all that we know of, they take the fewest names.
NameRules nameRulesOfCards();

/// Tries names in a hidden folder within `folder`, which is removed again. Absent where nothing can
/// be written. One run at a time does that in a folder.
std::optional<NameRules> nameRulesOf(std::string const& folder);

/// The same without writing anything, by the kind of the file system of `folder`, or of the nearest
/// folder above it that is there. Absent for kinds that do not tell, as those of phones and shares.
std::optional<NameRules> nameRulesByKindOf(std::string const& folder);

/// Removes that hidden folder if names are being tried, which ends. For a process that is about to
/// end. Safe on any thread.
void removeTriedNamesForGood();
