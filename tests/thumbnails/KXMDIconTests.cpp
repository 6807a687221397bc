#include "support/ThumbnailTest.h"

#include <set>

using namespace pictures;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr KXSize size32 { 32, 32 };

class KXMDIcon : public ThumbnailTest {
protected:
    static KXDCFile::Ref folderAt(std::string path)
    {
        auto const file = std::make_shared<KXDCSimpleFile>(std::move(path));
        file->setIsFolder(true);
        return file;
    }

    static KXDCFile::Ref fileOfKind(int kind, std::string path)
    {
        auto const file = std::make_shared<KXDCSimpleFile>(std::move(path));
        file->setFileKind(kind);
        return file;
    }

    std::string typeOf(std::string path) const
    {
        return controller->iconTypeForFile(*fileAt(std::move(path)));
    }
};

}

// Types.

TEST_F(KXMDIcon, TypeIsTheExtensionAsWritten)
{
    EXPECT_EQ(typeOf("/x/song.mp3"), "mp3");
    EXPECT_EQ(typeOf("/x/photo.JPG"), "JPG");
    EXPECT_EQ(typeOf("/x/archive.tar.gz"), "gz");
    EXPECT_EQ(typeOf("/x.y/Bj\u00F6rk.\u00F6gg"), "\u00F6gg");
}

TEST_F(KXMDIcon, TypeOfAFileWithoutExtensionIsThatOfDocuments)
{
    for (char const* path : { "/x/README", "/x.y/README", "/x/ends with a stop.", "" })
        EXPECT_EQ(typeOf(path), KXIconProvider::documentType) << path;
}

TEST_F(KXMDIcon, TypeOfAFolderIsThatOfFoldersWhateverItsName)
{
    for (char const* path : { "/x/Music", "/x/Music.app", "/x/list.m3u" })
        EXPECT_EQ(controller->iconTypeForFile(*folderAt(path)), KXIconProvider::folderType) << path;
    auto const playlist = std::make_shared<KXDCSimpleFile>("/x/list.txt");
    playlist->setFileKind(KXDCFileKindPlaylist);
    playlist->setIsFolder(true);
    EXPECT_EQ(controller->iconTypeForFile(*playlist), KXIconProvider::folderType);
}

TEST_F(KXMDIcon, TypeOfAPlaylistIsM3uWhateverItsName)
{
    for (char const* path : { "/x/list.txt", "/x/list", "" })
        EXPECT_EQ(controller->iconTypeForFile(*fileOfKind(64, path)), "m3u") << path;
    EXPECT_EQ(controller->iconTypeForFile(*fileOfKind(63, "/x/list.txt")), "txt");
}

TEST_F(KXMDIcon, TypesThatAreNoExtensionDiffer)
{
    std::set<std::string> const types { controller->iconTypeForFile(*folderAt("/x")), typeOf("/x"),
        typeOf("/x.fldr"), typeOf("/x.docu"), typeOf("/x.folder") };
    EXPECT_EQ(types.size(), 5u);
}

TEST_F(KXMDIcon, NoExtensionCanBeTakenForATypeThatIsNone)
{
    for (std::string_view const type : { KXIconProvider::folderType, KXIconProvider::documentType })
        EXPECT_EQ(type.front(), '/') << type; // Begins the next component, never an extension.
    EXPECT_EQ(typeOf("/x/a./fldr"), KXIconProvider::documentType); // A file "fldr" in "a.".
    EXPECT_EQ(typeOf("/x/a.'fldr'"), "'fldr'");
    EXPECT_EQ(typeOf("/x/a.'docu'"), "'docu'");
}

// Cache names.

TEST_F(KXMDIcon, CacheNameIsThatOfTheType)
{
    auto const name = controller->cacheNameForPath("mp3", size32);
    EXPECT_EQ(controller->cacheNameForIcon(*fileAt("/a.mp3"), size32), name);
    EXPECT_EQ(controller->cacheNameForIcon(*track("/b.mp3", "A", "B"), { 32.9, 32.5 }), name);
    EXPECT_NE(controller->cacheNameForIcon(*fileAt("/a.MP3"), size32), name);
    EXPECT_NE(controller->cacheNameForIcon(*fileAt("/a.mp3"), { 16, 16 }), name);
}

// Icons.

TEST_F(KXMDIcon, FilesOfOneTypeShareAnIconPerSize)
{
    auto const icon = controller->iconForFile(*fileAt("/a.mp3"), size32);
    ASSERT_TRUE(icon);
    EXPECT_EQ(controller->iconForFile(*fileAt("/b.mp3"), size32), icon);
    EXPECT_EQ(controller->imageForCacheName(controller->cacheNameForPath("mp3", size32)), icon);
    EXPECT_NE(controller->iconForFile(*fileAt("/a.m4a"), size32), icon);
    EXPECT_NE(controller->iconForFile(*fileAt("/a.mp3"), { 16, 16 }), icon);
    EXPECT_THAT(machine.iconProvider->calls(),
        ElementsAre(FakeIconProvider::Call { "mp3", size32 },
            FakeIconProvider::Call { "m4a", size32 },
            FakeIconProvider::Call { "mp3", { 16, 16 } }));
    EXPECT_THAT(rendered(), IsEmpty());
}

TEST_F(KXMDIcon, IsAskedForByItsType)
{
    (void)controller->iconForFile(*folderAt("/x.mp3"), size32);
    (void)controller->iconForFile(*fileOfKind(64, "/list.txt"), size32);
    (void)controller->iconForFile(*fileAt("/README"), size32);
    EXPECT_THAT(machine.iconProvider->calls(),
        ElementsAre(FakeIconProvider::Call { std::string(KXIconProvider::folderType), size32 },
            FakeIconProvider::Call { "m3u", size32 },
            FakeIconProvider::Call { std::string(KXIconProvider::documentType), size32 }));
}

TEST_F(KXMDIcon, WholeIconIsStretchedToTheSize)
{
    // Not cropped to a square: the red ends of a wide icon stay.
    machine.iconProvider->setImage(imageOf(
        60, 20, [](std::size_t x, std::size_t) { return x < 20 || x >= 40 ? red : green; }));
    auto const icon = controller->iconForFile(*fileAt("/a.mp3"), { 45, 45 });
    ASSERT_TRUE(icon);
    EXPECT_EQ(icon->size(), (KXSize { 45, 45 }));
    EXPECT_EQ(pixel(*icon, 0, 0), red);
    EXPECT_EQ(pixel(*icon, 44, 44), red);
    EXPECT_EQ(pixel(*icon, 22, 22), green);
    EXPECT_EQ(countOf(*icon, transparent), 0u);
}

TEST_F(KXMDIcon, IsUprightAndKeepsItsTransparency)
{
    machine.iconProvider->setImage(imageOf(40, 40, [](std::size_t x, std::size_t y) {
        return y < 20 ? (x < 20 ? blue : transparent) : white;
    }));
    auto const icon = controller->iconForFile(*fileAt("/a.mp3"), { 100.7, 96.2 });
    ASSERT_TRUE(icon);
    EXPECT_EQ(icon->size(), (KXSize { 100.7, 96.2 }));
    EXPECT_EQ(pixel(*icon, 5, 5), blue);
    EXPECT_EQ(pixel(*icon, 95, 5), transparent);
    EXPECT_EQ(pixel(*icon, 5, 90), white);
}

TEST_F(KXMDIcon, OfAnImpossibleSizeIsNothing)
{
    EXPECT_FALSE(controller->iconForFile(*fileAt("/a.mp3"), { 0, 32 }));
    EXPECT_FALSE(controller->iconForFile(*fileAt("/a.mp3"), { 32, -1 }));
    EXPECT_FALSE(controller->thumbnailExistsForPath("mp3", { 0, 32 }));
}

TEST_F(KXMDIcon, IsHandedToTheHandlerOnceAndThenComesFromTheCache)
{
    Received received;
    EXPECT_FALSE(controller->iconForFile(fileAt("/a.mp3"), size32, into(received)));
    finish();
    ASSERT_EQ(received.size(), 1u);
    ASSERT_TRUE(received[0]);
    EXPECT_EQ(received[0]->size(), size32);
    EXPECT_EQ(controller->iconForFile(fileAt("/b.mp3"), size32, into(received)), received[0]);
    finish();
    EXPECT_EQ(received.size(), 1u);
    EXPECT_EQ(iconCalls().size(), 1u);
}

TEST_F(KXMDIcon, HandlerIsGivenNothingWhenThereIsNoIcon)
{
    machine.iconProvider->setImage(nullptr);
    Received received;
    EXPECT_FALSE(controller->iconForFile(fileAt("/a.mp3"), size32, into(received)));
    finish();
    EXPECT_THAT(received, ElementsAre(nullptr));
}
