#pragma once

#include "kxmd/base/KXData.h"
#include "kxmd/image/KXImage.h"
#include "kxmd/kxmd_c.h"

#include <string>

struct kxmd_image {
    KXImage::Ref image;
};

/// What decodes, encodes or converts on this machine.
enum class KXCDecoder { pictures, movies, converter };

/// Fails because `decoder` gave nothing: since it is not there, or else for the reason that `code`
/// and `message` are.
[[noreturn]] void KXCFailWithout(KXCDecoder decoder, kxmd_error_code code, std::string message);

/// The picture that `file` is, decoded; fails when it is none.
KXImage::Ref KXCDecodedPicture(KXData const& file);

/// Refuses what is no format.
void KXCRequireFormat(kxmd_picture_format format);

/// `image` as a file; fails when it cannot be encoded.
KXData KXCEncodedPicture(KXImage const& image, kxmd_picture_format format);
