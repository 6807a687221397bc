#pragma once

#include "kxmd/thumbnails/KXMDThumbnailController.h"
#include "support/Fakes.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/Pictures.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

/// Tests of a controller on a machine of fakes.
class ThumbnailTest : public testing::Test {
protected:
    using Image = KXImage::Ref;
    /// What handlers were given so far, in order.
    using Received = std::vector<Image>;

    static KXDCFile::Ref fileAt(std::string path)
    {
        return std::make_shared<KXDCSimpleFile>(std::move(path));
    }

    /// A track, its tags as the host stores them.
    static KXDCFile::Ref track(std::string path, std::string artist, std::string album)
    {
        auto const file = fileAt(std::move(path));
        file->setMetadataForKey(std::move(artist), "Artist");
        file->setMetadataForKey(std::move(album), "Album");
        return file;
    }

    /// A file that an image file stands for, which holds `word`.
    KXDCFile::Ref fileWithImageFile(std::string path, std::string const& word)
    {
        auto const file = fileAt(std::move(path));
        file->setMetadataForKey(folder.write(word, build::text(word)), "ThumbnailPath");
        return file;
    }

    /// A new file whose thumbnail is of one colour.
    KXDCFile::Ref coloured(std::string const& path, pictures::Colour colour)
    {
        machine.thumbnailService->setImageForPath(pictures::solid(64, 64, colour), path);
        return fileAt(path);
    }

    /// A handler that keeps what it is given.
    static KXMDThumbnailController::Handler into(Received& received)
    {
        return [&received](Image image) { received.push_back(std::move(image)); };
    }

    /// Waits until every request so far is worked off, and lets the main queue run dry. Nothing is
    /// under way afterwards, so a handler that was not called by now never will be.
    void finish()
    {
        bool isDone = false;
        // The last request is one that is never in the cache: such a size has no picture.
        EXPECT_FALSE(controller->iconForFile(
            fileAt("/x.finish"), { 0, 0 }, [&isDone](Image const&) { isDone = true; }));
        while (!isDone)
            machine.mainQueue->waitAndRunAll();
        machine.mainQueue->runAll();
    }

    /// The icons that were asked for, but for those of `finish`.
    std::vector<FakeIconProvider::Call> iconCalls() const
    {
        return machine.iconProvider->callsExceptFor("finish");
    }

    static std::vector<std::string> pathsOf(std::vector<FakeThumbnailService::Call> const& calls)
    {
        std::vector<std::string> paths;
        for (auto const& call : calls)
            paths.push_back(call.path);
        return paths;
    }
    /// The paths that the thumbnail service was asked for.
    std::vector<std::string> rendered() const { return pathsOf(machine.thumbnailService->calls()); }

    FakeMachine const machine;
    TemporaryFolder const folder;
    KXMDThumbnailController::Ref controller
        = KXMDThumbnailController::createWithPlatform(machine.platform());
};
