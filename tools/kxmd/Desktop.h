#pragma once

#include "desktop/DesktopModule.h"

#include <kxmd/platform/KXPlatform.h>
#include <kxmd/thumbnails/KXMDThumbnailController.h>

#include <stdexcept>

/// Says that something of ours is not installed as it should be, or cannot be loaded now.
class MissingModule : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

/// The desktop's libraries, loaded when they are first asked for. Throws `MissingModule`.
DesktopModule const& desktop();

/// This machine's services, with nothing that their libraries say to themselves. Throws
/// `MissingModule`: a run that went on without would leave out what it was asked for.
KXPlatform::Ref machine();

/// The shared controller over these services. Throws `MissingModule`.
KXMDThumbnailController::Ref const& thumbnailController();
