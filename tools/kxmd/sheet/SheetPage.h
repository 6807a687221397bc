#pragma once

#include <kxmd/platform/KXPlatform.h>

#include <string>
#include <string_view>
#include <system_error>

class AtomicFile;

/// What a page tells of one file beside what is in it.
struct SheetEntry {
    std::string path {}; ///< Empty for one that is not there any more.
    std::string name; ///< As the page shows the path.
    std::string done {}; ///< What was done to it, in words.
    std::string remark {}; ///< What a person should know of it.
    bool isFailed { false };
};

/// A row of the page.
struct SheetRow {
    std::string text; ///< A JSON object.
    bool isUnreadable { false };
    std::error_code readError {};
};

/// Looks into a file. Safe on any thread.
SheetRow sheetRowOf(SheetEntry const& entry, KXPlatform const& platform);

/// One page of HTML with all that is in some files, which needs nothing beside it: pictures,
/// texts, and what sorts and searches them. Written as the rows come.
class SheetPage {
public:
    /// A page that is written to `file`, which is open.
    explicit SheetPage(AtomicFile& file)
        : _file(file)
    {
    }

    /// Writes what comes before the rows; false as all below when that fails.
    [[nodiscard]] bool begin();
    [[nodiscard]] bool add(SheetRow const& row);
    /// Writes what comes after the rows.
    [[nodiscard]] bool finish();

private:
    [[nodiscard]] bool write(std::string_view text);

    AtomicFile& _file;
    bool _isEmpty { true };
};
