#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"

#include <cstddef>
#include <gdk-pixbuf/gdk-pixbuf.h>

/// The picture of a pixbuf; null when it has another layout than eight bits of red, green, blue and
/// perhaps alpha. With a `factor` above 1 each of its pixels is the mean of so many by so many.
KXImage::Ref imageOfPixbuf(GdkPixbuf& pixbuf, std::size_t factor = 1);

/// The pixels of a picture, not premultiplied, with alpha.
GObjectRef<GdkPixbuf> pixbufOfImage(KXImage const& image);

/// The pixels of a picture on a white ground, without alpha.
GObjectRef<GdkPixbuf> pixbufOverWhite(KXImage const& image);

/// The pixbuf as a file of a type, encoded with one option; empty when that fails.
KXData encodedPixbuf(GdkPixbuf* pixbuf, char const* type, char const* option, char const* value);
