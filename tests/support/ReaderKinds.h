#pragma once

#include "kxmd/base/KXMutableAbstractData.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>

/// What a reader can be made over. All three keep the same contract.
enum class ReaderKind { path, immutableBuffer, mutableBuffer };

constexpr ReaderKind allReaderKinds[] {
    ReaderKind::path,
    ReaderKind::immutableBuffer,
    ReaderKind::mutableBuffer,
};

inline std::string nameOfReaderKind(ReaderKind kind)
{
    switch (kind) {
    case ReaderKind::path:
        return "Path";
    case ReaderKind::immutableBuffer:
        return "ImmutableBuffer";
    case ReaderKind::mutableBuffer:
        break;
    }
    return "MutableBuffer";
}

inline void PrintTo(ReaderKind kind, std::ostream* stream) { *stream << nameOfReaderKind(kind); }

/// A test that runs once for each kind of reader.
class TestOfEveryReader : public testing::TestWithParam<ReaderKind> {
protected:
    KXAbstractData::Ref readerOver(build::Bytes bytes)
    {
        switch (GetParam()) {
        case ReaderKind::path:
            return KXAbstractData::abstractDataWithPath(
                _folder.write(std::to_string(++_files), bytes));
        case ReaderKind::immutableBuffer:
            return KXAbstractData::abstractDataWithData(KXData(std::move(bytes)));
        case ReaderKind::mutableBuffer:
            break;
        }
        return KXMutableAbstractData::abstractDataWithData(
            std::make_shared<KXMutableData>(std::move(bytes)));
    }

private:
    TemporaryFolder _folder;
    int _files { 0 };
};
