#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/kxmd_c.h"
#include "shared/SourceFile.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

struct kxmd_file {
    static constexpr std::size_t tagCount = 4;

    std::string path; ///< Empty for a file in memory.
    std::optional<SourceFile> source; ///< By which it is told whether the file was changed.
    KXData bytes; ///< Those of a file in memory.

    KXAbstractData::Ref reader;
    KXMDMetaType detectedType { KXMDMetaTypeUnknown };
    KXMDFileMeta::Ref meta;
    std::array<std::optional<std::string>, tagCount> tags;
    std::vector<kxmd_codec_info> codecs;
    std::vector<std::string> descriptions; ///< Of the codecs.
    bool hasVideo { false };
    bool hasValidCover { false };
    bool canInsertCover { false };
    std::uint64_t coverSize { 0 };
};

/// A reader over the file at `path`; fails where there is none.
KXAbstractData::Ref KXCReaderOfPath(char const* path);
