#pragma once

#include "kxmd/host/KXData.h"
#include "kxmd/platform/KXImage.h"
#include "kxmd/platform/linux/KXGLibRefsPrivate.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

/// The picture of a pixbuf; null when it has another layout than eight bits of red, green, blue and
/// perhaps alpha.
KXImage::Ref imageOfPixbuf(GdkPixbuf& pixbuf);

/// The pixels of a picture, not premultiplied, with alpha.
GObjectRef<GdkPixbuf> pixbufOfImage(KXImage const& image);

/// The pixels of a picture on a white ground, without alpha.
GObjectRef<GdkPixbuf> pixbufOverWhite(KXImage const& image);

/// The pixbuf as a file of a type, encoded with one option; empty when that fails.
KXData encodedPixbuf(GdkPixbuf* pixbuf, char const* type, char const* option, char const* value);
