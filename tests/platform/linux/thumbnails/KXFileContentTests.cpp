#include "kxmd/platform/linux/thumbnails/KXFileContentPrivate.h"

#include "support/Builders.h"

#include <gtest/gtest.h>

using namespace build;
using enum KXFileContent;

namespace {

/// The content of a file with this head and some bytes after it.
KXFileContent contentOf(Bytes const& head) { return contentOfFileWithHead(join(head, zeros(600))); }

KXFileContent contentOf(std::string const& head) { return contentOf(text(head)); }

Bytes packets(std::size_t first, std::size_t length)
{
    Bytes stream = zeros(first);
    for (int i = 0; i < 3; ++i)
        stream = join(stream, u8(0x47), filled(length - 1, 1));
    return stream;
}

}

TEST(KXFileContent, KnowsPicturesThatAreDecodedHere)
{
    EXPECT_EQ(contentOf(bytes({ 0xFF, 0xD8, 0xFF, 0xE0 })), picture);
    EXPECT_EQ(contentOf(png(3, 3)), picture);
    EXPECT_EQ(contentOf(gif(3, 3)), picture);
    EXPECT_EQ(contentOf("GIF87a"), picture);
    EXPECT_EQ(contentOf(join(text("BM"), u32(0x12345678), zeros(4))), picture);
}

TEST(KXFileContent, BitmapHasFourReservedBytesAndMore)
{
    Bytes const head = join(text("BM"), u32(0x12345678), zeros(4));
    EXPECT_EQ(contentOfFileWithHead(head), other);
    EXPECT_EQ(contentOfFileWithHead(join(head, u8(9))), picture);
    for (std::size_t i = 6; i < 10; ++i) {
        Bytes used = join(head, u8(9));
        used[i] = 1;
        EXPECT_EQ(contentOfFileWithHead(used), other) << i;
    }
}

TEST(KXFileContent, KnowsPicturesOfUncommonFormats)
{
    for (Bytes const& head :
        { text("\xFF\x4F\xFF\x51"), join(u32(12), text("jP  ")), join(u32(12), text("JXL ")),
            text("\xFF\x0A"), text("v/1\1"), text("8BPS"), text("qoif"), text("DDS ") }) {
        EXPECT_EQ(contentOf(head), rarePicture) << head[0];
        Bytes const part(head.begin(), head.end() - 1);
        EXPECT_EQ(contentOf(part), other) << head[0];
    }
}

TEST(KXFileContent, KnowsPicturesOfOtherProcesses)
{
    for (Bytes const& head : { bytes({ 'I', 'I', '*', 0 }), bytes({ 'M', 'M', 0, '*' }),
             bytes({ 0, 0, 1, 0 }), text("RIFF....WEBPVP8 ") })
        EXPECT_EQ(contentOf(head), rarePicture);
    for (char const* brand : { "heic", "heix", "hevc", "mif1", "msf1", "avif", "avis" })
        EXPECT_EQ(contentOf(atom("ftyp", text(brand), u32(0))), rarePicture) << brand;
}

TEST(KXFileContent, KnowsPortableMaps)
{
    for (char const* head :
        { "P1\n3 3\n", "P2 3 3 ", "P3\r\n# by hand\n", "P4\n\n3", "P5\t3", "P6\n3 3\n255\n" })
        EXPECT_EQ(contentOf(head), rarePicture) << head;
    for (char const* head : { "P0\n3 3", "P7\n3 3", "P63 3", "P6\n", "P6\nx", "p6\n3", "Q6\n3" })
        EXPECT_EQ(contentOf(head), other) << head;
}

TEST(KXFileContent, KnowsVideoWithoutAContainer)
{
    EXPECT_EQ(contentOf("YUV4MPEG2 W320"), movie);
    EXPECT_EQ(contentOf(bytes({ 0, 0, 1, 0xB0 })), movie); // MPEG-4.
    // H.264 and H.265: parameter sets and access unit delimiters, with a zero more or without.
    for (auto const& [unit, next] :
        std::vector<std::pair<int, int>> { { 0x67, 0x64 }, { 0x47, 0x42 }, { 0x27, 0x42 },
            { 0x09, 0x10 }, { 0x09, 0xF0 }, { 0x40, 1 }, { 0x42, 1 }, { 0x46, 1 } }) {
        EXPECT_EQ(contentOf(bytes({ 0, 0, 0, 1, unit, next })), movie) << unit;
        EXPECT_EQ(contentOf(bytes({ 0, 0, 1, unit, next })), movie) << unit;
        EXPECT_EQ(contentOf(bytes({ 0, 0, 0, 0, 1, unit, next })), other) << unit;
        EXPECT_EQ(contentOf(bytes({ 0, 1, unit, next })), other) << unit;
    }
    for (auto const& [unit, next] : std::vector<std::pair<int, int>> {
             { 0x68, 0x64 }, { 0x09, 0x11 }, { 0x40, 2 }, { 0x41, 1 } })
        EXPECT_EQ(contentOf(bytes({ 0, 0, 0, 1, unit, next })), other) << unit;
    EXPECT_EQ(contentOfFileWithHead(bytes({ 0, 0, 1, 0x67 })), other);
}

TEST(KXFileContent, KnowsContainersOfBroadcastersAndOfTheWeb)
{
    EXPECT_EQ(contentOf("DKIF"), movie);
    EXPECT_EQ(contentOf(join(text("nut/multimedia container"), u8(0))), movie);
    EXPECT_EQ(contentOf(bytes({ 6, 0x0E, 0x2B, 0x34, 2, 5, 1, 1, 0x0D, 1, 2 })), movie);
}

TEST(KXFileContent, KnowsDrawings)
{
    for (char const* head : { "<svg/>", "<?xml version='1.0'?><!-- x --><svg>", "\xEF\xBB\xBF<svg",
             " \r\n\t<svg:svg xmlns:svg=''>" })
        EXPECT_EQ(contentOf(head), drawing) << head;
    for (char const* head : { "a <svg>", "<html>", "", "{'svg'}" })
        EXPECT_EQ(contentOf(head), other) << head;
}

TEST(KXFileContent, KnowsMoviesAndMusic)
{
    for (char const* brand : { "M4A ", "isom", "qt  ", "mp42", "3gp4" })
        EXPECT_EQ(contentOf(atom("ftyp", text(brand), u32(0))), movie) << brand;
    for (char const* type : { "moov", "mdat", "wide", "free", "skip", "pnot" }) {
        EXPECT_EQ(contentOf(atom(type, u32(0))), movie) << type;
        EXPECT_EQ(contentOf(type), other) << type; // Before its size.
    }
    for (char const* head :
        { "RIFF....AVI LIST", "RIFF....WAVEfmt ", "FORM....AIFFCOMM", "FORM....AIFCFVER" })
        EXPECT_EQ(contentOf(head), movie) << head;
}

TEST(KXFileContent, MostSignaturesCountAtTheVeryStart)
{
    for (Bytes const& head : { text("ID3\4"), text("fLaC"), text("OggS"), text("\x1A\x45\xDF\xA3"),
             text("FLV\1"), text("\x30\x26\xB2\x75\x8E\x66\xCF\x11"), bytes({ 0, 0, 1, 0xBA }),
             bytes({ 0, 0, 1, 0xB3 }), text("#!AMR\n"), text(".snd"), text(".RMF"), text("caff"),
             text("wvpk"), text("MAC "), text("MPCK"), text("MP+"), text("TTA1"), text("DSD ") }) {
        EXPECT_EQ(contentOf(head), movie) << testing::PrintToString(head);
        EXPECT_EQ(contentOf(join(text("x"), head)), other) << testing::PrintToString(head);
    }
}

TEST(KXFileContent, KnowsAudioFramesAndPackets)
{
    for (auto const& frame : { bytes({ 0xFF, 0xFB, 0x90, 0x44 }), bytes({ 0xFF, 0xF3, 0x40, 0 }),
             bytes({ 0xFF, 0xF1, 0x50, 0x80 }), bytes({ 0xFF, 0xF9, 0x50, 0x80 }) })
        EXPECT_EQ(contentOf(frame), movie);
    for (auto const& frame :
        { bytes({ 0xFF, 0xFE, 'a', 0 }), bytes({ 0xFF, 0xEB, 0x90, 0 }),
            bytes({ 0xFF, 0xFB, 0xF0, 0 }), bytes({ 0xFF, 0xFB, 0x9C, 0 }), bytes({ 0xFF, 0xFB }) })
        EXPECT_EQ(contentOfFileWithHead(frame), other);
    EXPECT_EQ(contentOf(packets(0, 188)), movie);
    EXPECT_EQ(contentOf(packets(4, 192)), movie);
    EXPECT_EQ(contentOf(packets(1, 188)), other);
    EXPECT_EQ(contentOf("GGGG"), other);
}

TEST(KXFileContent, AudioFrameHasNoReservedValue)
{
    // Layers I, II and III of the versions 1, 2 and 2.5; the highest bit rate and sampling
    // frequency; the last sampling frequency of AAC.
    for (auto const& frame : { bytes({ 0xFF, 0xFF, 0x90, 0 }), bytes({ 0xFF, 0xFD, 0x90, 0 }),
             bytes({ 0xFF, 0xF5, 0x90, 0 }), bytes({ 0xFF, 0xE3, 0x90, 0 }),
             bytes({ 0xFF, 0xE7, 0x90, 0 }), bytes({ 0xFF, 0xFB, 0xE8, 0 }),
             bytes({ 0xFF, 0xF1, 0x30, 0 }) })
        EXPECT_EQ(contentOfFileWithHead(frame), movie) << testing::PrintToString(frame);
    for (auto const& frame : { bytes({ 0xFF, 0xDB, 0x90, 0 }), bytes({ 0xFE, 0xFB, 0x90, 0 }),
             bytes({ 0xFF, 0xE1, 0x90, 0 }), bytes({ 0xFF, 0xEF, 0x90, 0 }),
             bytes({ 0xFF, 0xFB, 0xF8, 0 }), bytes({ 0xFF, 0xFB, 0x0C, 0 }),
             bytes({ 0xFF, 0xF1, 0x34, 0 }), bytes({ 0xFF, 0xFB, 0x90 }) })
        EXPECT_EQ(contentOfFileWithHead(frame), other) << testing::PrintToString(frame);
}

TEST(KXFileContent, TransportStreamShowsThreePackets)
{
    Bytes const stream = packets(0, 188);
    EXPECT_EQ(contentOfFileWithHead(std::span(stream).first(2 * 188 + 1)), movie);
    EXPECT_EQ(contentOfFileWithHead(std::span(stream).first(2 * 188)), other);
    EXPECT_EQ(contentOf(Bytes(stream.begin(), stream.begin() + 2 * 188)), other);
}

TEST(KXFileContent, KnowsPDFBehindALineOrTwo)
{
    EXPECT_EQ(contentOf("%PDF-1.4\n"), pdf);
    EXPECT_EQ(contentOf(join(filled(1'000, '\n'), text("%PDF-1.4"))), pdf);
    EXPECT_EQ(contentOf(join(filled(1'019, '\n'), text("%PDF-1.4"))), pdf);
    EXPECT_EQ(contentOf(join(filled(1'020, '\n'), text("%PDF-1.4"))), other);
}

TEST(KXFileContent, KnowsNothingOfTextsAndLists)
{
    for (char const* head : { "BMW is a car", "#EXTM3U\nfile:///etc/passwd", "concat:a|b",
             "ffconcat", "[playlist]", "P6 of them", "/* XPM */", "PK\3\4" })
        EXPECT_EQ(contentOf(head), other) << head;
}

TEST(KXFileContent, ShortHeadsAreNoHarm)
{
    Bytes const whole = join(atom("ftyp", text("heic")), zeros(20));
    for (Bytes const& file :
        { whole, png(3, 3), packets(0, 188), text("BM\0\0\0\0\0\0\0\0\0\0") }) {
        for (std::size_t length = 0; length < std::min<std::size_t>(file.size(), 40); ++length)
            (void)contentOfFileWithHead(std::span(file).first(length));
    }
    EXPECT_EQ(contentOfFileWithHead({}), other);
    EXPECT_EQ(contentOfFileWithHead(text("BM")), other);
}
