#pragma once

#include <kxmd/platform/KXMediaProbe.h>

/// Whether there is lossless audio, and no moving picture beside it.
bool isLossless(KXMediaProbe const& probe);
