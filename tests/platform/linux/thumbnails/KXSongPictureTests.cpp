#include "kxmd/platform/linux/thumbnails/KXSongPicturePrivate.h"

#include "support/Builders.h"
#include "support/RecordingData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

using namespace build;

namespace {

/// The head of a frame of MPEG audio, layer III, and of what follows.
Bytes audio() { return join(bytes({ 0xFF, 0xFB, 0x90, 0xC4 }), zeros(413)); }

Bytes tagWith(Bytes const& frames, std::uint32_t flags = 0)
{
    return join(text("ID3"), u8(4), u8(0), u8(flags),
        syncSafe(static_cast<std::uint32_t>(frames.size())), frames);
}

bool isWithout(Bytes const& file) { return isSongWithoutPicture(*reader(file)); }

/// A file whose bytes from `end` on the system refuses to read.
class DamagedData final : public KXAbstractData {
public:
    DamagedData(Bytes bytes, std::uint64_t end)
        : _bytes(std::move(bytes))
        , _end(end)
    {
    }

    std::uint64_t length() const override { return _bytes.size(); }

private:
    std::uint8_t const* bytesAt(std::uint64_t, std::size_t) override { return nullptr; }
    std::uint64_t copyBytesAt(
        std::uint64_t position, std::uint8_t* target, std::uint64_t count) override
    {
        if (position + count > _end)
            keepReadError({ EIO, std::system_category() });
        std::uint64_t const most = _end > position ? _end - position : 0;
        return std::copy_n(_bytes.data() + position, std::min(count, most), target) - target;
    }

    Bytes const _bytes;
    std::uint64_t const _end;
};

}

TEST(KXSongPicture, SongWithoutPictureFramesHasNone)
{
    EXPECT_TRUE(isWithout(audio()));
    EXPECT_TRUE(isWithout(join(tagWith({}), audio())));
    auto const data = reader(join(tagWith(join(text("TIT2"), zeros(20))), audio()));
    EXPECT_TRUE(isSongWithoutPicture(*data));
    EXPECT_TRUE(isSongWithoutPicture(*data)); // Wherever it stands.
}

TEST(KXSongPicture, AnyPictureFrameMayHoldOne)
{
    for (char const* name : { "APIC", "PIC" }) {
        EXPECT_FALSE(isWithout(join(tagWith(join(zeros(9), text(name))), audio()))) << name;
        EXPECT_TRUE(isWithout(join(tagWith(zeros(9)), audio(), text(name)))) << name;
    }
}

TEST(KXSongPicture, TagMayHaveAFooter)
{
    constexpr std::uint32_t hasFooter = 0x10;
    EXPECT_TRUE(isWithout(join(tagWith(zeros(30), hasFooter), text("3DI"), zeros(7), audio())));
    EXPECT_FALSE(isWithout(join(tagWith(zeros(30), hasFooter), audio())));
    EXPECT_FALSE(isWithout(join(tagWith(zeros(30)), text("3DI"), zeros(7), audio())));
}

TEST(KXSongPicture, WhatFollowsTheTagMustBeAudio)
{
    EXPECT_FALSE(isWithout(join(tagWith({}), text("fLaC"), zeros(400))));
    EXPECT_FALSE(isWithout(join(tagWith({}), tagWith(text("APIC")), audio())));
    EXPECT_FALSE(isWithout(join(tagWith({}), zeros(1), audio())));
    EXPECT_FALSE(isWithout(tagWith(zeros(30))));
    EXPECT_FALSE(isWithout(join(tagWith({}), bytes({ 0xFF, 0xFB, 0x90 }))));
    EXPECT_FALSE(isWithout(text("RIFF")));
    EXPECT_FALSE(isWithout({}));
}

TEST(KXSongPicture, SizeThatIsNotSyncSafeSaysNothing)
{
    for (std::size_t i = 6; i < 10; ++i) {
        Bytes file = join(tagWith({}), audio());
        file[i] = 0x80;
        EXPECT_FALSE(isWithout(file)) << i;
    }
}

TEST(KXSongPicture, OtherTagAtTheEndMayHoldOne)
{
    Bytes const song = join(audio(), audio());
    Bytes const footer = join(text("APETAGEX"), zeros(24));
    EXPECT_FALSE(isWithout(join(song, footer)));
    EXPECT_FALSE(isWithout(join(song, footer, text("TAG"), zeros(125))));
    EXPECT_TRUE(isWithout(join(song, text("TAG"), zeros(125))));
    EXPECT_FALSE(isWithout(join(bytes({ 0xFF, 0xFB, 0x90, 0xC4 }), footer)));
}

TEST(KXSongPicture, LongTagIsNotRead)
{
    constexpr std::size_t longestTag = 64 * 1024, header = 10;
    EXPECT_TRUE(isWithout(join(tagWith(zeros(longestTag - header)), audio())));
    RecordingData longer(join(tagWith(zeros(longestTag - header + 1)), audio()));
    EXPECT_FALSE(isSongWithoutPicture(longer));
    RecordingData lying(join(text("ID3"), bytes({ 4, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F }), audio()));
    EXPECT_FALSE(isSongWithoutPicture(lying));
    for (auto const* data : { &longer, &lying })
        EXPECT_EQ(data->reads(), (std::vector<RecordingData::Read> { { 0, header } }));
}

TEST(KXSongPicture, WhatCannotBeReadSaysNothing)
{
    Bytes const file = join(tagWith(zeros(30)), audio());
    for (std::uint64_t const end : { 0u, 9u, 20u, 42u, 300u, 456u }) {
        DamagedData data(file, end);
        EXPECT_FALSE(isSongWithoutPicture(data)) << end;
    }
    DamagedData whole(file, file.size());
    EXPECT_TRUE(isSongWithoutPicture(whole));
}
