#pragma once

#include <string>

/// `folder` itself, or the nearest folder above it, if it is not there.
std::string nearestFolder(std::string folder);
