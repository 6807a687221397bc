// Real media files, cut off at every length that makes a difference.

#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "support/Files.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

using build::Bytes;

namespace {

/// The first `length` bytes of a buffer. Remembers where its reads ended: a parse can only tell two
/// lengths apart when one of those ends lies between them.
class CutData final : public KXAbstractData {
public:
    CutData(Bytes const& bytes, std::uint64_t length)
        : _bytes(bytes)
        , _length(length)
    {
    }

    std::uint64_t length() const override { return _length; }
    std::set<std::uint64_t> const& endsOfReads() const { return _endsOfReads; }

private:
    std::uint8_t const* bytesAt(std::uint64_t position, std::size_t count) override
    {
        _endsOfReads.insert(position + count);
        return _bytes.data() + position;
    }

    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override
    {
        std::memcpy(target, bytesAt(position, count), count);
        return count;
    }

    Bytes const& _bytes;
    std::uint64_t const _length;
    std::set<std::uint64_t> _endsOfReads;
};

void parse(CutData& data)
{
    auto const meta = KXMDFileMeta::fileMetaWithAbstractData(data);
    if (!meta)
        return;
    EXPECT_EQ(meta->filesize(), data.length());
    (void)meta->videoCodecsInfo();
    (void)meta->audioCodecsInfo();
    (void)meta->hasValidAlbumCover();
}

/// At most `most` of the values, spread evenly.
std::vector<std::uint64_t> thinnedOut(std::set<std::uint64_t> const& values, std::size_t most)
{
    std::vector<std::uint64_t> const all(values.begin(), values.end());
    if (all.size() <= most)
        return all;
    std::vector<std::uint64_t> chosen;
    for (std::size_t i = 0; i < most; ++i)
        chosen.push_back(all[i * all.size() / most]);
    return chosen;
}

}

TEST(SampleTruncation, EveryTruncationOfEachSampleParses)
{
    auto const paths = sampleFiles();
    if (paths.empty())
        GTEST_SKIP() << "no samples";
    LogCapture const log;
    constexpr std::uint64_t wholeFileBelow = 2000;
    constexpr std::size_t mostLengths = 2000;
    for (auto const& path : paths) {
        Bytes const bytes = bytesOfFile(path);
        CutData whole(bytes, bytes.size());
        parse(whole);

        std::set<std::uint64_t> lengths;
        if (bytes.size() <= wholeFileBelow) {
            for (std::uint64_t length = 0; length < bytes.size(); ++length)
                lengths.insert(length);
        }
        for (std::uint64_t const end : whole.endsOfReads()) {
            lengths.insert(end - 1);
            lengths.insert(std::min<std::uint64_t>(end, bytes.size()));
        }
        for (std::uint64_t const length : thinnedOut(lengths, mostLengths)) {
            SCOPED_TRACE(path.string() + " cut to " + std::to_string(length));
            CutData cut(bytes, length);
            parse(cut);
        }
    }
}
