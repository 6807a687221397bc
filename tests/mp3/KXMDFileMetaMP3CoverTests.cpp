#include "kxmd/mp3/KXMDFileMetaMP3.h"

#include "support/Builders.h"

#include <gtest/gtest.h>

using namespace build;

TEST(KXMDFileMetaMP3, CoversAreJudgedByWidestAndHighest)
{
    struct Case {
        std::vector<Bytes> covers;
        bool isValid;
    };
    Case const cases[] {
        { {}, false },
        { { jpeg(200, 200) }, true },
        { { jpeg(199, 300) }, false },
        { { jpeg(300, 100), png(100, 300) }, true },
        { { text("no picture") }, false },
    };
    for (ID3 const version : { ID3::v22, ID3::v23, ID3::v24 }) {
        for (auto const& [covers, isValid] : cases) {
            Bytes frames;
            for (auto const& cover : covers)
                frames = join(std::move(frames), pictureFrame(version, cover));
            KXMDFileMetaMP3 meta;
            ASSERT_TRUE(meta.parseAbstractData(*reader(tag(version, frames))));
            EXPECT_EQ(meta.hasValidAlbumCover(), isValid);
        }
    }
}

TEST(KXMDFileMetaMP3, EmbeddedCoversCountWithTheirHeaders)
{
    Bytes const cover = pictureFrame(ID3::v23, jpeg(10, 10, 100));
    Bytes const frames = join(cover, textFrame(ID3::v23, "TIT2", "Title"), cover);
    KXMDFileMetaMP3 meta;
    EXPECT_EQ(meta.albumCoverSizeForEmbeddedTags(), 0u);
    ASSERT_TRUE(meta.parseAbstractData(*reader(tag(ID3::v23, frames))));
    EXPECT_EQ(meta.albumCoverSizeForEmbeddedTags(), 2 * cover.size());
}

TEST(KXMDFileMetaMP3, CoverCanBeInsertedWhereThereIsAFrame)
{
    KXMDFileMetaMP3 meta;
    EXPECT_FALSE(meta.canInsertAlbumCover());
    ASSERT_TRUE(meta.parseAbstractData(*reader(tag(ID3::v23, textFrame(ID3::v23, "TIT2", "T")))));
    EXPECT_TRUE(meta.canInsertAlbumCover());
    ASSERT_TRUE(meta.parseAbstractData(*reader(tag(ID3::v23, zeros(100)))));
    EXPECT_FALSE(meta.canInsertAlbumCover());
}
