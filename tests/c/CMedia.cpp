#include "CMedia.h"

#include "kxmd/platform/KXPlatform.h"
#include "support/EditableMovies.h"
#include "support/Exif.h"
#include "support/Pictures.h"

using namespace build;

namespace {

Bytes bytesOf(KXData const& data) { return { data.bytes().begin(), data.bytes().end() }; }

Bytes jpegFile()
{
    auto const& loader = *KXPlatform::shared()->pictureLoader;
    return bytesOf(loader.jpgRepresentation(*pictures::photograph(300, 300)));
}

Bytes pngFile()
{
    auto const& loader = *KXPlatform::shared()->pictureLoader;
    return bytesOf(loader.pngRepresentation(*pictures::solid(60, 40, pictures::red)));
}

Bytes song(Bytes const& cover)
{
    Bytes const entry = soundEntry("mp4a", esds(0x40, 128000, 96000, bytes({ 0x12, 0x10 })));
    Bytes const tags = join(covr(13, cover), tagAtom("\xA9nam", "Blue"),
        tagAtom("\xA9"
                "ART",
            "The Waves"),
        tagAtom("\xA9"
                "alb",
            "Sea"));
    return editable::moovFirst([&](std::uint32_t media) {
        return atom("moov", track("soun", stsd(entry), { media }), userDataWithTags(tags));
    });
}

Bytes fragileSong()
{
    using namespace editable;
    return moovFirst([](std::uint32_t media) {
        return atom("moov", trackWithTables(stco({ media })), trackWithTables(co64({ media + 8 })),
            userData);
    });
}

/// Five frames of MPEG audio, layer III, at 44.1 kHz and 128 kbit/s.
Bytes mpegAudio()
{
    Bytes const frame = join(bytes({ 0xFF, 0xFB, 0x90, 0 }), zeros(413));
    return concatenated(std::vector<Bytes>(5, frame));
}

Bytes recording()
{
    Bytes const sizes = atom("stsz", u32(0), u32(0), u32(100));
    Bytes const entry = videoEntry("avc1", 320, 240, avcC(77, 30));
    auto const moov = [&](std::uint32_t media) {
        return atom("moov",
            atom("trak",
                atom("mdia", hdlr("vide"),
                    atom("minf", atom("vmhd", zeros(12)),
                        atom("stbl", stsd(entry), sizes, stco({ media }))))),
            track("soun", stsd(soundEntry("mp4a")), { media }),
            atom("udta", atom("\xA9mak", text("Camera"))),
            atom("meta", hdlr("mdta"), atom("keys", zeros(8))));
    };
    Bytes const fileType = atom("ftyp", text("qt  "), u32(0));
    auto const position = static_cast<std::uint32_t>(fileType.size() + moov(0).size() + 8);
    return join(fileType, moov(position), atom("mdat", filled(64, 'm')));
}

Bytes photo()
{
    constexpr std::uint32_t after = 8 + directoryLength(2);
    return join(startOfImage,
        exif(tiff(TIFF::MM,
            directory(TIFF::MM, { entry(TIFF::MM, 0x0201, after), entry(TIFF::MM, 0x0202, 7) }),
            text("preview"))));
}

Bytes littleEndian(Bytes const& number) { return { number.rbegin(), number.rend() }; }

/// A second of silence.
Bytes sound()
{
    constexpr std::uint32_t rate = 8000, length = 2 * rate;
    auto const u16 = [](std::uint32_t number) { return littleEndian(build::u16(number)); };
    auto const u32 = [](std::uint32_t number) { return littleEndian(build::u32(number)); };
    return join(text("RIFF"), u32(36 + length), text("WAVEfmt "), u32(16), u16(1), u16(1),
        u32(rate), u32(2 * rate), u16(2), u16(16), text("data"), u32(length), zeros(length));
}

}

CMedia::CMedia()
    : _jpeg(jpegFile())
    , _png(pngFile())
{
    _media = { .folder = _folderPath.c_str(),
        .song = write("song.m4a", song(_jpeg)),
        .fragile = write("fragile.m4a", fragileSong()),
        .tagged = write(
            "tagged.mp3", join(tag(ID3::v23, textFrame(ID3::v23, "TIT2", "Blue")), mpegAudio())),
        .bare = write("bare.mp3", mpegAudio()),
        .recording = write("recording.mov", recording()),
        .photo = write("photo.jpg", photo()),
        .sound = write("sound.wav", sound()),
        .picture = write("picture.png", _png),
        .text = write("text.txt", text("no media")),
        .jpeg = _jpeg.data(),
        .jpeg_length = _jpeg.size(),
        .png = _png.data(),
        .png_length = _png.size(),
        .has_converter = false };
#ifdef KXMD_HAS_CONVERTER
    _media.has_converter = true;
#endif
}

char const* CMedia::write(char const* name, Bytes const& bytes)
{
    return _paths.emplace_back(_folder.write(name, bytes)).c_str();
}
