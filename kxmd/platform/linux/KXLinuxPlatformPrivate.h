#pragma once

#include "kxmd/platform/KXMachineReport.h"
#include "kxmd/platform/linux/render/KXRenderServerPrivate.h"

#include <memory>

// The programs that decode for all platforms of this process.

std::shared_ptr<KXRenderServer const> const& renderServerForPictures();
std::shared_ptr<KXRenderServer const> const& renderServerForRarePictures();
std::shared_ptr<KXRenderServer const> const& renderServerForMovies();

/// What this machine has, looked up anew.
KXMachineReport newMachineReport();
