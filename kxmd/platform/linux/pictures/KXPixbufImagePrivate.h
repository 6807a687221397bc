#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/platform/linux/system/KXGLibRefsPrivate.h"

#include <cstddef>
#include <gdk-pixbuf/gdk-pixbuf.h>

/// The picture of a pixbuf. With a `factor` above 1, each pixel is the mean of a block of `factor`
/// by `factor`.
KXImage::Ref imageOfPixbuf(GdkPixbuf& pixbuf, std::size_t factor = 1);

/// The pixels of a picture, not premultiplied, with alpha.
GObjectRef<GdkPixbuf> pixbufOfImage(KXImage const& image);

/// The pixels of a picture on a white ground, without alpha.
GObjectRef<GdkPixbuf> pixbufOverWhite(KXImage const& image);

/// The pixbuf as a file of a type, encoded with one option; empty when that fails.
KXData encodedPixbuf(GdkPixbuf* pixbuf, char const* type, char const* option, char const* value);
