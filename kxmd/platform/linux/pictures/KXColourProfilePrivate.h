#pragma once

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <span>

/// Converts the pixels of a pixbuf from the colours of an ICC profile (ISO 15076-1) to sRGB, which
/// is what a picture has for everybody else. Left as they are where the profile is damaged or of
/// another kind than displays, cameras and phones have: three primaries and their curves.
void convertToSRGB(GdkPixbuf& pixbuf, std::span<guchar const> profile);
