#pragma once

#include "Folder.h"

#include <kxmd/base/KXSerialQueue.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

/// The files that a window shows, in whole or in part.
struct VisibleFiles {
    std::size_t files { 0 };
    std::size_t withPicture { 0 };
    std::size_t withoutPicture { 0 }; ///< That have none, and are known to have none.
};

/// Fetches the pictures of what a window shows, and of nothing else. For the main thread alone.
///
/// The controller makes every picture that it was asked for, one after the other. A window on ten
/// thousand files must therefore not ask for all of them: this asks for two at a time, so that the
/// second waits in the controller's queue while the first is being delivered, and takes the next
/// from what the window shows by then. So whatever was scrolled away is never asked for.
class PictureLoader : public std::enable_shared_from_this<PictureLoader> {
public:
    using Ref = std::shared_ptr<PictureLoader>;

    /// What is called on the main thread when something has come.
    struct Handlers {
        /// The picture of `file`; null when it has none.
        std::function<void(KXDCFile::Ref const& file, KXImage::Ref const& picture)> pictureCame;
        /// An icon that `iconForFile` did not have yet.
        std::function<void()> iconCame;
    };

    /// What an automatic test looks at.
    struct Counts {
        std::size_t asked { 0 }; ///< Pictures of files that the controller was asked for.
        std::size_t mostInFlight { 0 };
        std::size_t mostWanted { 0 };
    };

    static constexpr std::size_t inFlightAtOnce = 2;

    /// A loader of squares of `side` pixels. No handler is called after its end.
    static Ref create(KXPlatform::Ref platform, double side, Handlers handlers);

    /// Sets the files that the window shows and that lack their picture, the first to come first.
    /// Replaces those of before.
    void setWanted(Files files);

    /// The icon of a file's type. Null while it is being made.
    KXImage::Ref iconForFile(KXDCFile::Ref const& file);

    /// Whether everything that was wanted has come.
    bool isIdle() const { return _wanted.empty() && _inFlight.empty() && !_iconsInFlight; }

    Counts const& counts() const { return _counts; }

private:
    PictureLoader(KXPlatform::Ref platform, double side, Handlers handlers);

    void askForNext();
    void askFor(KXDCFile::Ref const& file);
    void askForFolder(KXDCFile::Ref const& folder);
    void takePicture(KXDCFile::Ref const& file, KXImage::Ref const& picture);

    KXPlatform::Ref const _platform;
    KXMDThumbnailController::Ref const _controller;
    KXSerialQueue _folderQueue { "org.kxmd.browser.folders" };
    KXSize const _size;
    Handlers const _handlers;
    Files _wanted; // The next one last.
    Files _inFlight;
    std::map<std::string, KXImage::Ref> _icons; // By type; null while one is being made.
    std::size_t _iconsInFlight { 0 };
    Counts _counts;
};
