#pragma once

#include <string>

/// Decodes the picture or the movie's first frame at `path` by nothing but the codec's own library,
/// shrunk as far as that library can while neither side gets shorter than `side`; false when the
/// file is of another format. What nobody who shows it can do without.
bool decodeByCodec(std::string const& path, int side);
