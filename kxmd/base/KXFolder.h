#pragma once

#include "kxmd/base/KXExport.h"

#include <string>
#include <system_error>
#include <vector>

// The standard library's own operations end the program where memory runs out.

/// `namesInFolder:error:` The names of what a folder holds, in no order, without "." and "..".
///
/// With an error, those that came before it; for a lack of memory `std::bad_alloc` leaves this.
KX_EXPORT std::vector<std::string> KXNamesInFolder(std::string const& path, std::error_code& error);

/// `removeFolder:` Removes a folder with all that is in it, or a file; whether it is gone. Links
/// are not followed.
KX_EXPORT bool KXRemoveFolder(std::string const& path);
