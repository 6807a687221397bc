#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/platform/linux/icons/KXIconThemePrivate.h"

#include <mutex>
#include <string>
#include <vector>

/// The user's icon theme with all that it builds upon. Read at first use. Safe to call from several
/// threads.
class KX_EXPORT_FOR_TESTS KXIconThemes {
public:
    /// Where themes lie, and which ones to look into, in this order; then their parents.
    struct Places {
        std::vector<std::string> baseFolders;
        std::vector<std::string> themes;

        static Places ofThisMachine();
    };

    explicit KXIconThemes(Places places);

    /// The path of the icon that goes by the first possible of these names, in the size that comes
    /// nearest to `size` pixels; empty when no theme has any.
    std::string pathOfIcon(std::vector<std::string> const& names, int size) const;

    /// The names of the themes that there are, in the order in which they are looked into.
    std::vector<std::string> names() const;

private:
    void readThemes() const;

    Places const _places;
    mutable std::once_flag _isRead;
    mutable std::vector<KXIconTheme> _themes; // In the order in which they are looked into.
};
