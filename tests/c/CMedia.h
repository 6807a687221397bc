#pragma once

#include "UseOfC.h"

#include "support/Files.h"

#include <deque>

/// Files for the tests of the C interface, in a folder of their own.
class CMedia {
public:
    CMedia();

    c_media const& media() const { return _media; }
    std::string pathOf(char const* name) const { return (_folder.path() / name).string(); }
    build::Bytes const& jpeg() const { return _jpeg; }

private:
    char const* write(char const* name, build::Bytes const& bytes);

    TemporaryFolder const _folder;
    std::string const _folderPath { _folder.path().string() };
    std::deque<std::string> _paths;
    build::Bytes const _jpeg;
    build::Bytes const _png;
    c_media _media {};
};
