#include "kxmd/host/KXDCFile.h"

#include "kxmd/host/KXDCFileProxy.h"
#include "support/Fields.h"

#include <gmock/gmock.h>

#include <thread>

using testing::ElementsAre;

namespace {

class Note final : public KXObject { };

}

TEST(KXDCSimpleFile, KnowsItsPathAndNothingElseAtFirst)
{
    KXDCSimpleFile const file("/Music/Blue.mp3");
    EXPECT_EQ(file.sourcePath(), "/Music/Blue.mp3");
    EXPECT_EQ(file.filename(), "Blue.mp3");
    EXPECT_EQ(file.name(), "Blue.mp3");
    EXPECT_TRUE(std::holds_alternative<std::monostate>(file.metadataForKey("Name")));
}

TEST(KXDCSimpleFile, MayHaveAnEmptyPath)
{
    KXDCSimpleFile const file("");
    EXPECT_EQ(file.sourcePath(), "");
    EXPECT_EQ(file.filename(), "");
    EXPECT_EQ(file.name(), "");
}

TEST(KXDCSimpleFile, KeepsValuesByKey)
{
    KXDCSimpleFile file("/a");
    auto const note = std::make_shared<Note>();
    file.setMetadataForKey("Blue", "Name");
    file.setMetadataForKey(note, "FileMetaObject");
    EXPECT_EQ(KXTextOfValue(file.metadataForKey("Name")), "Blue");
    EXPECT_EQ(std::get<std::shared_ptr<KXObject>>(file.metadataForKey("FileMetaObject")), note);

    file.setMetadataForKey("Red", "Name");
    EXPECT_EQ(KXTextOfValue(file.metadataForKey("Name")), "Red");
    file.setMetadataForKey({}, "Name");
    EXPECT_EQ(KXTextOfValue(file.metadataForKey("Name")), "");
    EXPECT_TRUE(std::holds_alternative<std::monostate>(file.metadataForKey("name")));
}

TEST(KXDCSimpleFile, RenamingLeavesTheFileNameAlone)
{
    KXDCSimpleFile file("/Music/01.mp3");
    file.setName("Blue");
    EXPECT_EQ(file.name(), "Blue");
    EXPECT_EQ(file.filename(), "01.mp3");
}

TEST(KXDCSimpleFile, HasTheseFields)
{
    using File = KXDCSimpleFile;
    expectFields<File>(
        {
            field<File>("name", &File::name, &File::setName, "list", "Blue"),
            field<File>("fileKind", &File::fileKind, &File::setFileKind, 0, 64),
            field<File>("hasDRM", &File::hasDRM, &File::setHasDRM, false, true),
            field<File>("isFolder", &File::isFolder, &File::setIsFolder, false, true),
        },
        [] { return File("/list"); });
    EXPECT_EQ(KXDCFileKindPlaylist, 64);
}

TEST(KXDCSimpleFile, ValuesMayBeUsedOnSeveralThreads)
{
    KXDCSimpleFile file("/a");
    std::jthread const writer([&file] {
        for (int i = 0; i < 2000; ++i) {
            file.setMetadataForKey(i % 2 ? "odd" : "even", "Name");
            file.setName(i % 2 ? "odd" : "even");
        }
    });
    for (int i = 0; i < 2000; ++i) {
        KXDCValue const value = file.metadataForKey("Name");
        ASSERT_THAT(KXTextOfValue(value), testing::AnyOf("", "odd", "even"));
        ASSERT_THAT(file.name(), testing::AnyOf("a", "odd", "even"));
    }
}

TEST(KXDCValue, HoldsNoTextUnlessItIsOne)
{
    EXPECT_EQ(KXTextOfValue({}), "");
    EXPECT_EQ(KXTextOfValue(std::shared_ptr<KXObject>(std::make_shared<Note>())), "");
    KXDCValue const value("text");
    EXPECT_EQ(KXTextOfValue(value), "text");
}

TEST(KXDCSimpleFileProxy, HoldsFileTargetAndMembersInOrder)
{
    auto const file = std::make_shared<KXDCSimpleFile>("/list.m3u");
    auto const member = [](char const* path) {
        return std::make_shared<KXDCSimpleFileProxy>(std::make_shared<KXDCSimpleFile>(path), path);
    };
    auto const first = member("/b"), second = member("/a");
    KXDCSimpleFileProxy const proxy(file, "Playlists/list.m3u", { first, second });
    EXPECT_EQ(proxy.file(), file);
    EXPECT_EQ(proxy.targetPath(), "Playlists/list.m3u");
    EXPECT_THAT(proxy.collectionFileProxies(), ElementsAre(first, second));
    EXPECT_TRUE(first->collectionFileProxies().empty());
}

namespace {

/// Asks its file while it is destroyed, as an object of a host may.
class Curious final : public KXObject {
public:
    Curious(KXDCSimpleFile const& file, std::string& seen)
        : _file(file)
        , _seen(seen)
    {
    }
    ~Curious() override { _seen = KXTextOfValue(_file.metadataForKey("Key")); }

private:
    KXDCSimpleFile const& _file;
    std::string& _seen;
};

}

TEST(KXDCSimpleFile, ReplacedObjectIsDestroyedAfterTheLockIsLeft)
{
    KXDCSimpleFile file("/a");
    std::string seen;
    file.setMetadataForKey(std::shared_ptr<KXObject>(new Curious(file, seen)), "Key");
    file.setMetadataForKey("new", "Key"); // Waits for ever if the file is locked meanwhile.
    EXPECT_EQ(seen, "new");
}
