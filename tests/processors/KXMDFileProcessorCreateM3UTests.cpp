#include "kxmd/processors/KXMDFileProcessorCreateM3U.h"

#include <gmock/gmock.h>

#include <string>

namespace {

/// A member, as a host stores it.
KXDCFileProxy::Ref member(std::string targetPath, bool hasDRM = false)
{
    auto const file = std::make_shared<KXDCSimpleFile>("/home/" + targetPath);
    file->setHasDRM(hasDRM);
    return std::make_shared<KXDCSimpleFileProxy>(file, std::move(targetPath));
}

KXDCSimpleFileProxy playlist(KXDCFileProxy::List members, std::string targetPath = "/Phone/Mix.m3u",
    int kind = KXDCFileKindPlaylist)
{
    auto const file = std::make_shared<KXDCSimpleFile>("/home/mix");
    file->setFileKind(kind);
    return KXDCSimpleFileProxy(file, std::move(targetPath), std::move(members));
}

/// The playlist's text as both operations give it, "(nothing)" when there is none. The predicted
/// size is that of the text.
std::string textOf(KXDCFileProxy const& proxy)
{
    KXMDFileProcessorCreateM3U const processor;
    auto const ignored = KXAbstractData::abstractDataWithData(KXData({ 'x' }));
    auto const data = processor.processedFileDataForFileProxy(proxy, ignored);
    auto const size = processor.processedFilesizeForFileProxy(proxy, 4711);
    EXPECT_EQ(size, data ? data->length() : 0);
    EXPECT_EQ(processor.createPlaylistDataForFileProxy(proxy) == nullptr, data == nullptr);
    if (!data)
        return "(nothing)";
    std::string text(data->length(), '\0');
    EXPECT_TRUE(data->readBytesTo(reinterpret_cast<std::uint8_t*>(text.data()), text.size()));
    return text;
}

}

TEST(KXMDFileProcessorCreateM3U, ListsMembersBelowItsFolder)
{
    EXPECT_EQ(textOf(playlist({ member("/Phone/Music/Album/01.mp3"), member("/Phone/02.m4a") })),
        ".\\Music\\Album\\01.mp3\r\n.\\02.m4a");
}

TEST(KXMDFileProcessorCreateM3U, ProtectedMemberIsLeftOut)
{
    EXPECT_EQ(textOf(playlist({ member("/Phone/1.mp3"), member("/Phone/2.m4p", true),
                  member("/Phone/3.mp3") })),
        ".\\1.mp3\r\n.\\3.mp3");
}

TEST(KXMDFileProcessorCreateM3U, MembersOutsideItsFolderAreLeftOut)
{
    EXPECT_EQ(textOf(playlist({ member("/Elsewhere/1.mp3"), member("/Phone2/2.mp3"),
                  member("/Phone"), member("Phone/3.mp3"), member("/Phone/../4.mp3"), member(""),
                  member("/Phone/5.mp3") })),
        ".\\5.mp3");
}

TEST(KXMDFileProcessorCreateM3U, PathsAreUTF8WithoutAByteOrderMark)
{
    EXPECT_EQ(textOf(playlist({ member("/Phone/Bj\xC3\xB6rk/\xE6\x97\xA5\xE6\x9C\xAC.mp3") })),
        ".\\Bj\xC3\xB6rk\\\xE6\x97\xA5\xE6\x9C\xAC.mp3");
}

TEST(KXMDFileProcessorCreateM3U, OtherKindsOfFilesGiveNothing)
{
    for (int const kind : { 0, 1, 63, 65, -64, 64 << 8 })
        EXPECT_EQ(
            textOf(playlist({ member("/Phone/1.mp3") }, "/Phone/Mix.m3u", kind)), "(nothing)");
}

TEST(KXMDFileProcessorCreateM3U, NoMemberThatCanBeListedGivesNothing)
{
    EXPECT_EQ(textOf(playlist({})), "(nothing)");
    EXPECT_EQ(
        textOf(playlist({ member("/Phone/1.m4p", true), member("/Other/2.mp3") })), "(nothing)");
}

TEST(KXMDFileProcessorCreateM3U, BackslashInANameIsKept)
{
    EXPECT_EQ(textOf(playlist({ member("/Phone/AC\\DC/1.mp3") })), ".\\AC\\DC\\1.mp3");
}

TEST(KXMDFileProcessorCreateM3U, NeedlessPartsOfAPathAreLeftOut)
{
    EXPECT_EQ(
        textOf(playlist({ member("/Phone//Music/./1.mp3"), member("/Phone/Other/../2.mp3") })),
        ".\\Music\\1.mp3\r\n.\\2.mp3");
}

TEST(KXMDFileProcessorCreateM3U, PlaylistAtTheRootAndWithoutAFolder)
{
    EXPECT_EQ(textOf(playlist({ member("/Music/1.mp3") }, "/Mix.m3u")), ".\\Music\\1.mp3");
    EXPECT_EQ(textOf(playlist({ member("Music/1.mp3"), member("/2.mp3") }, "Mix.m3u")),
        ".\\Music\\1.mp3");
}

TEST(KXMDFileProcessorCreateM3U, MemberTwiceIsListedTwice)
{
    EXPECT_EQ(textOf(playlist({ member("/Phone/1.mp3"), member("/Phone/1.mp3") })),
        ".\\1.mp3\r\n.\\1.mp3");
}

TEST(KXMDFileProcessorCreateM3U, BytesHandedInAreNotUsed)
{
    auto const proxy = playlist({ member("/Phone/1.mp3") });
    EXPECT_TRUE(KXMDFileProcessorCreateM3U().processedFileDataForFileProxy(proxy, nullptr));
}

TEST(KXMDFileProcessorCreateM3U, LongPlaylistsAreListedWhole)
{
    KXDCFileProxy::List const members(20'000, member("/Phone/1.mp3"));
    EXPECT_EQ(textOf(playlist(members)).size(), 20'000 * 9 - 2u);
}

TEST(KXMDFileProcessorCreateM3U, WithoutAFileThereIsNoPlaylistAndNoMember)
{
    KXMDFileProcessorCreateM3U const processor;
    KXDCSimpleFileProxy const nobody(nullptr, "/Phone/list.m3u");
    EXPECT_FALSE(processor.createPlaylistDataForFileProxy(nobody));
    EXPECT_EQ(processor.processedFilesizeForFileProxy(nobody, 4711), 0u);

    auto const list = std::make_shared<KXDCSimpleFile>("/list.m3u");
    list->setFileKind(KXDCFileKindPlaylist);
    auto const member = std::make_shared<KXDCSimpleFileProxy>(
        std::make_shared<KXDCSimpleFile>("/a.mp3"), "/Phone/a.mp3");
    auto const without = std::make_shared<KXDCSimpleFileProxy>(nullptr, "/Phone/b.mp3");
    KXDCSimpleFileProxy const playlist(list, "/Phone/list.m3u", { nullptr, without, member });
    EXPECT_EQ(processor.processedFilesizeForFileProxy(playlist, 0), std::string(".\\a.mp3").size());
}
