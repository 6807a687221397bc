#include "kxmd/mp4/atoms/KXMP4AtomCovr.h"

#include "support/AtomTrees.h"
#include "support/PictureHeaders.h"

#include <gtest/gtest.h>

using namespace build;

namespace {

KXSize sizeOfCover(Bytes const& atom)
{
    auto const cover = std::dynamic_pointer_cast<KXMP4AtomCovr>(treeOf(atom)->children().front());
    return cover ? cover->albumCoverSize() : KXSize { -1, -1 };
}

constexpr KXSize none;
constexpr std::uint32_t jpegType = 13, pngType = 14;

}

TEST(KXMP4AtomCovr, SizeOfAJPEG)
{
    EXPECT_EQ(sizeOfCover(covr(jpegType, jpeg(300, 300, 50'000))), (KXSize { 300, 300 }));
}

TEST(KXMP4AtomCovr, SizeOfAPNG)
{
    EXPECT_EQ(sizeOfCover(covr(pngType, png(640, 480))), (KXSize { 640, 480 }));
}

TEST(KXMP4AtomCovr, DeclaredTypeNeedNotBeTheRealOne)
{
    for (Bytes const& picture : { png(640, 480), gif(640, 480), bmp(640, 480), tiff(640, 480),
             webp(640, 480), heif(640, 480) })
        EXPECT_EQ(sizeOfCover(covr(jpegType, picture)), (KXSize { 640, 480 }));
}

TEST(KXMP4AtomCovr, OtherDeclaredTypesAreNoCover)
{
    constexpr std::uint32_t implicit = 0, gifType = 12, next = 15, bmpType = 27;
    for (std::uint32_t const type :
        { implicit, 1u, gifType, next, bmpType, 0x0100000Du, 0xFFFFFFFFu })
        EXPECT_EQ(sizeOfCover(covr(type, jpeg(300, 300))), none) << type;
}

TEST(KXMP4AtomCovr, EmptyPictureIsNoCover) { EXPECT_EQ(sizeOfCover(covr(jpegType, {})), none); }

TEST(KXMP4AtomCovr, ChildSmallerThanItsHeaderIsRefused)
{
    EXPECT_EQ(
        sizeOfCover(atom("covr", atomClaiming(15, "data", u32(jpegType), u32(0), jpeg(300, 300)))),
        none);
    EXPECT_EQ(
        sizeOfCover(atom("covr", atomClaiming(0, "data", u32(jpegType), u32(0), jpeg(300, 300)))),
        none);
}

TEST(KXMP4AtomCovr, ChildThatIsNoDataHidesLaterPictures)
{
    EXPECT_EQ(sizeOfCover(atom("covr", atom("name"), dataAtom(jpegType, jpeg(300, 300)))), none);
}

TEST(KXMP4AtomCovr, OnlyTheFirstPictureIsLookedAt)
{
    EXPECT_EQ(sizeOfCover(atom(
                  "covr", dataAtom(jpegType, jpeg(100, 100)), dataAtom(jpegType, jpeg(300, 300)))),
        (KXSize { 100, 100 }));
}

TEST(KXMP4AtomCovr, BytesThatAreNoPictureHaveNoSize)
{
    EXPECT_EQ(sizeOfCover(covr(jpegType, text("neither JPEG nor PNG"))), none);
}

TEST(KXMP4AtomCovr, PictureIsHeldAgainstTheWholeCoverAtom)
{
    // The picture claims all of the cover's size but one byte, header included, and runs past the
    // cover into what follows; that is let pass.
    Bytes const picture = jpeg(300, 300);
    auto const length = static_cast<std::uint32_t>(picture.size());
    Bytes const passing = atomClaiming(
        length + 1, "covr", u32(length + 16), text("data"), u32(jpegType), u32(0), picture);
    EXPECT_EQ(sizeOfCover(passing), (KXSize { 300, 300 }));
    Bytes const refused = atomClaiming(
        length, "covr", u32(length + 16), text("data"), u32(jpegType), u32(0), picture);
    EXPECT_EQ(sizeOfCover(refused), none);
}

TEST(KXMP4AtomCovr, PictureThatRunsPastTheDataHasNoSize)
{
    Bytes const file = covr(jpegType, jpeg(300, 300, 500));
    EXPECT_EQ(sizeOfCover(Bytes(file.begin(), file.end() - 1)), none);
}

TEST(KXMP4AtomCovr, DataChildIsNotPartOfTheTree)
{
    EXPECT_TRUE(treeOf(covr(jpegType, jpeg(300, 300)))->children().front()->children().empty());
}
