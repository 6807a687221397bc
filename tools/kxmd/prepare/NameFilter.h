#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Which files of a collection are wanted. Patterns are those of a shell; one with a slash stands
/// for a whole path below the folder that is prepared, one without for a name in any folder.
class NameFilter {
public:
    /// Leaves out what `excluded` matches and `included` does not.
    NameFilter(std::vector<std::string> excluded, std::vector<std::string> included);

    /// Also leaves out what file managers and programs that copy discs leave behind: of no use on a
    /// phone.
    void leaveOutClutter();

    bool isWanted(std::string_view relativePath) const;

private:
    std::vector<std::string> _excluded;
    std::vector<std::string> const _included;
    bool _leavesOutClutter { false };
};
