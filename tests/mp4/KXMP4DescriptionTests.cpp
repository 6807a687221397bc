// Which tags of a movie describe it, and which a camera writes.

#include "kxmd/mp4/KXMP4MovieKind.h"

#include "support/Builders.h"

#include <gtest/gtest.h>

using namespace build;

namespace {

bool isDescribed(Bytes const& atomsOfMovie)
{
    auto const track = build::track("vide", stsd(videoEntry("avc1", 8, 8)));
    auto const file = join(ftyp(), atom("moov", track, atomsOfMovie));
    auto const kind = KXMP4MovieKind::kindOfData(*reader(file));
    EXPECT_TRUE(kind);
    return kind && kind->isDescribed;
}

bool isTagDescriptive(Bytes const& tag) { return isDescribed(userDataWithTags(tag)); }
bool isUserDatumDescriptive(Bytes const& datum) { return isDescribed(atom("udta", datum)); }

Bytes numberTag(std::string_view type, std::uint32_t value)
{
    return atom(type, dataAtom(0, u32(value)));
}

/// A text of QuickTime's user data, in English.
Bytes userText(std::string_view type, std::string_view value)
{
    return atom(type, u16(static_cast<std::uint32_t>(value.size())), u16(0), text(value));
}

/// A text of 3GPP.
Bytes assetText(std::string_view type, Bytes const& value)
{
    return atom(type, u32(0), u16(0x15C7), value);
}

struct KeyedTag {
    std::string_view key;
    std::string_view value;
};

Bytes keyedMetadata(std::vector<KeyedTag> const& tags)
{
    Bytes keys, values;
    std::uint32_t number = 0;
    for (auto const& [key, value] : tags) {
        keys = join(keys, atom("mdta", text(key)));
        values = join(values, u32(static_cast<std::uint32_t>(24 + value.size())), u32(++number),
            dataAtom(1, text(value)));
    }
    auto const count = static_cast<std::uint32_t>(tags.size());
    return atom("meta", hdlr("mdta"), atom("keys", u32(0), u32(count), keys), atom("ilst", values));
}

}

TEST(KXMP4Description, TagsOfITunes)
{
    for (std::string_view const type : { "\xA9nam",
             "\xA9"
             "ART",
             "\xA9"
             "art",
             "\xA9"
             "alb",
             "aART", "\xA9wrt", "\xA9gen", "\xA9grp",
             "\xA9"
             "dir",
             "\xA9prd", "tvsh", "tven", "tvnn", "desc", "ldes", "sdes" }) {
        EXPECT_TRUE(isTagDescriptive(tagAtom(type, "Blue"))) << type;
        EXPECT_FALSE(isTagDescriptive(tagAtom(type, ""))) << type;
        EXPECT_FALSE(isTagDescriptive(tagAtom(type, " \t"))) << type;
    }
    for (std::string_view const type : { "gnre", "tvsn", "tves" }) {
        EXPECT_TRUE(isTagDescriptive(numberTag(type, 3))) << type;
        EXPECT_FALSE(isTagDescriptive(numberTag(type, 0))) << type;
    }
}

TEST(KXMP4Description, WhatCamerasWriteDoesNotCount)
{
    for (std::string_view const type : { "\xA9too",
             "\xA9"
             "day",
             "\xA9"
             "cmt",
             "\xA9xyz", "\xA9mak", "\xA9mod", "\xA9swr", "pgap", "----" }) {
        EXPECT_FALSE(isTagDescriptive(tagAtom(type, "Blue"))) << type;
        EXPECT_FALSE(isUserDatumDescriptive(userText(type, "Blue"))) << type;
    }
    EXPECT_FALSE(isTagDescriptive(covr(13, jpeg(8, 8)))) << "drones put a frame there";
    for (std::string_view const type : { "loci", "yrrc", "cprt", "name" })
        EXPECT_FALSE(isUserDatumDescriptive(assetText(type, text("Blue")))) << type;
}

TEST(KXMP4Description, LongTextsCount)
{
    EXPECT_TRUE(isTagDescriptive(tagAtom("\xA9nam", std::string(255, 't'))));
    EXPECT_TRUE(isTagDescriptive(tagAtom("\xA9nam", std::string(100'000, 't'))));
}

TEST(KXMP4Description, ValuesOtherThanTheFirstCount)
{
    EXPECT_TRUE(isTagDescriptive(atom("\xA9nam", dataAtom(1, {}), dataAtom(1, text("Blue")))));
    EXPECT_FALSE(isTagDescriptive(atom("\xA9nam", atom("name", zeros(8), text("Blue")))));
    EXPECT_FALSE(isTagDescriptive(atom("\xA9nam", atom("data", zeros(3)))));
}

TEST(KXMP4Description, TextsOfUTF16)
{
    EXPECT_TRUE(isTagDescriptive(atom("\xA9nam", dataAtom(2, utf16BigEndian(u"B")))));
    EXPECT_FALSE(isTagDescriptive(atom("\xA9nam", dataAtom(2, utf16BigEndian(u" ")))));
    EXPECT_TRUE(isUserDatumDescriptive(assetText("titl", utf16(u"B"))));
    EXPECT_TRUE(isUserDatumDescriptive(assetText("titl", utf16(u"\u0410"))));
    EXPECT_FALSE(isUserDatumDescriptive(assetText("titl", utf16(u" "))));
    EXPECT_FALSE(isUserDatumDescriptive(assetText("titl", join(bytes({ 0xFE, 0xFF }), zeros(2)))));
}

TEST(KXMP4Description, TextsOfQuickTime)
{
    for (std::string_view const type : { "\xA9nam",
             "\xA9"
             "ART",
             "\xA9"
             "alb",
             "\xA9prd",
             "\xA9"
             "dir",
             "\xA9"
             "com",
             "\xA9gen", "\xA9prf",
             "\xA9"
             "aut" }) {
        EXPECT_TRUE(isUserDatumDescriptive(userText(type, "Blue"))) << type;
        EXPECT_FALSE(isUserDatumDescriptive(userText(type, ""))) << type;
        EXPECT_TRUE(isUserDatumDescriptive(join(atom("free"), userText(type, "Blue"), u32(0))))
            << type;
        EXPECT_TRUE(isDescribed(atom("trak", atom("udta", userText(type, "Blue"))))) << type;
    }
    auto const none = join(u16(0), u16(0x55C4)); // A text without bytes, in no language.
    EXPECT_FALSE(isUserDatumDescriptive(atom("\xA9nam", none, none)));
    EXPECT_TRUE(isUserDatumDescriptive(atom("\xA9nam", none, u16(4), u16(1), text("Bleu"))));
    EXPECT_TRUE(isUserDatumDescriptive(atom("\xA9nam", dataAtom(1, text("Blue")))));
    EXPECT_FALSE(isUserDatumDescriptive(atom("\xA9nam", u16(4))));
}

TEST(KXMP4Description, TextsOf3GPP)
{
    for (std::string_view const type : { "titl", "auth", "perf", "albm", "gnre" }) {
        EXPECT_TRUE(isUserDatumDescriptive(assetText(type, text("Blue")))) << type;
        EXPECT_FALSE(isUserDatumDescriptive(assetText(type, u8(0)))) << type;
        EXPECT_FALSE(isUserDatumDescriptive(assetText(type, {}))) << type;
        EXPECT_FALSE(isUserDatumDescriptive(atom(type))) << type;
    }
    EXPECT_FALSE(isUserDatumDescriptive(assetText("albm", join(u8(0), u8(70)))))
        << "a track's number";
}

TEST(KXMP4Description, CamerasWriteDescriptions)
{
    EXPECT_FALSE(isUserDatumDescriptive(userText("\xA9"
                                                 "des",
        "DIGITAL CAMERA")));
    EXPECT_FALSE(isUserDatumDescriptive(assetText("dscp", text("Recorded"))));
}

TEST(KXMP4Description, PhoneIsNotTheAuthorOfItsScreen)
{
    EXPECT_FALSE(isUserDatumDescriptive(assetText("auth", text("ReplayKitRecording"))));
    EXPECT_FALSE(
        isUserDatumDescriptive(assetText("auth", join(text("ReplayKitRecording"), u8(0)))));
    EXPECT_FALSE(
        isDescribed(keyedMetadata({ { "com.apple.quicktime.author", "ReplayKitRecording" } })));
    EXPECT_TRUE(isUserDatumDescriptive(assetText("auth", text("ReplayKitRecordings"))));
}

TEST(KXMP4Description, KeyedTags)
{
    std::string const prefix = "com.apple.quicktime.";
    for (std::string const name : { "title", "displayname", "artist", "album", "author", "genre",
             "composer", "description", "director", "producer" }) {
        EXPECT_TRUE(isDescribed(keyedMetadata({ { prefix + name, "Blue" } }))) << name;
        EXPECT_TRUE(isDescribed(keyedMetadata({ { name, "Blue" } }))) << name;
        EXPECT_FALSE(isDescribed(keyedMetadata({ { name, "" } }))) << name;
    }
    EXPECT_TRUE(isDescribed(keyedMetadata({ { "TITLE", "Blue" } })));
    for (std::string const name : { "make", "model", "software", "creationdate", "location.ISO6709",
             "comment", "camera.identifier", "titles", "" })
        EXPECT_FALSE(isDescribed(keyedMetadata({ { prefix + name, "Blue" } }))) << name;
    EXPECT_FALSE(isDescribed(keyedMetadata({ { "com.android.version", "12" } })));
}

TEST(KXMP4Description, KeysMayHaveAnyLength)
{
    for (std::size_t const length : { 64u, 65u, 1u << 24 }) {
        std::string const name(length, 'x');
        EXPECT_FALSE(isDescribed(keyedMetadata({ { name, "T" } }))) << length;
        EXPECT_TRUE(isDescribed(keyedMetadata({ { name, "T" }, { "title", "T" } }))) << length;
    }
}

TEST(KXMP4Description, ValueBelongsToTheKeyOfItsNumber)
{
    EXPECT_TRUE(
        isDescribed(keyedMetadata({ { "make", "M" }, { "title", "T" }, { "model", "M" } })));
    EXPECT_FALSE(
        isDescribed(keyedMetadata({ { "make", "M" }, { "title", "" }, { "model", "M" } })));
    // Numbers of no key.
    auto const title = atom("keys", u32(0), u32(1), atom("mdta", text("title")));
    for (std::uint32_t const number : { 0u, 2u, 0xFFFFFFFFu }) {
        auto const value = dataAtom(1, text("Blue"));
        auto const item
            = join(u32(static_cast<std::uint32_t>(value.size() + 8)), u32(number), value);
        EXPECT_FALSE(isDescribed(atom("meta", hdlr("mdta"), title, atom("ilst", item)))) << number;
    }
}

TEST(KXMP4Description, TagsOfITunesMayStandInTheMovieItself)
{
    auto const tags = atom("ilst", tagAtom("\xA9nam", "Blue"));
    EXPECT_TRUE(isDescribed(atom("meta", u32(0), hdlr("mdir"), tags)));
    EXPECT_FALSE(isDescribed(atom("trak", atom("meta", u32(0), hdlr("mdir"), tags))));
}

TEST(KXMP4Description, Chapters)
{
    EXPECT_TRUE(isUserDatumDescriptive(atom("chpl", u8(1), zeros(3), u32(0), u8(2))));
    EXPECT_FALSE(isUserDatumDescriptive(atom("chpl", u8(1), zeros(3), u32(0), u8(0))));
    EXPECT_TRUE(isUserDatumDescriptive(atom("chpl", zeros(4), u8(2))));
    EXPECT_FALSE(isUserDatumDescriptive(atom("chpl", zeros(4), u8(0), u8(2))));
    EXPECT_FALSE(isUserDatumDescriptive(join(atom("chpl", zeros(4)), u8(2))));
}
