#include "support/HEIF.h"
#include "support/PictureSizes.h"

using namespace build;

namespace {

struct Fraction {
    std::int32_t numerator;
    std::uint32_t denominator { 1 };
};

Bytes fraction(Fraction value)
{
    return join(u32(static_cast<std::uint32_t>(value.numerator)), u32(value.denominator));
}

/// A clean aperture; `right` and `down` are from the picture's centre to its own.
Bytes clap(Fraction width, Fraction height, Fraction right = { 0 }, Fraction down = { 0 })
{
    return atom("clap", fraction(width), fraction(height), fraction(right), fraction(down));
}

Size cropped(Bytes const& aperture) { return measured(heifOf(ispe(40, 30), aperture)); }

Size measuredIn(Bytes const& propertyBoxes) { return measured(heifAround(propertyBoxes)); }

}

TEST(KXPictureSizeHEIF, MeasuresEveryBrandOfPictures)
{
    Bytes const metadata = heifMetadata(40, 30);
    for (char const* brand : { "heic", "heix", "heim", "heis", "mif1", "avif", "avis" })
        EXPECT_EQ(measured(join(atom("ftyp", text(brand), u32(0)), metadata)), sizeOf40By30)
            << brand;
    for (char const* brand : { "isom", "msf1", "hevc", "M4A ", "mif2", "ahei" })
        EXPECT_EQ(measured(join(atom("ftyp", text(brand), u32(0)), metadata)), std::nullopt)
            << brand;
}

TEST(KXPictureSizeHEIF, SidesHave32Bits)
{
    EXPECT_EQ(measured(heif(0x01020304, 0x05060708)), (KXSize { 0x01020304, 0x05060708 }));
    EXPECT_EQ(measured(heif(0x7FFFFFFF, 1)), (KXSize { 0x7FFFFFFF, 1 }));
    EXPECT_EQ(measured(heif(0x80000000, 1)), std::nullopt);
    EXPECT_EQ(measured(heif(1, 0xFFFFFFFF)), std::nullopt);
}

TEST(KXPictureSizeHEIF, OtherBoxesMayComeBetween)
{
    Bytes const other = atom("free", zeros(11));
    Bytes const metadata = atom("meta", u32(0), other, atom("iinf", zeros(6)), pitm(1), other,
        atom("iprp", other, atom("ipco", other, ispe(40, 30), other), other,
            ipma(association(1, { 1, 2, 3 })), other),
        hdlr("pict"));
    EXPECT_EQ(measured(join(heicType(), other, atom("mdat", zeros(1000)), metadata, other)),
        sizeOf40By30);
}

TEST(KXPictureSizeHEIF, MetadataOfAnythingElseIsAbsent)
{
    Bytes const boxes
        = join(pitm(1), atom("iprp", atom("ipco", ispe(40, 30)), ipma(association(1, { 1 }))));
    auto const measuredWith = [&boxes](Bytes const& handler) {
        return measured(join(heicType(), atom("meta", u32(0), handler, boxes)));
    };
    EXPECT_EQ(measuredWith(hdlr("pict")), sizeOf40By30);
    EXPECT_EQ(measuredWith({}), sizeOf40By30);
    EXPECT_EQ(measuredWith(hdlr("mdir")), std::nullopt);
    EXPECT_EQ(measuredWith(hdlr("pic\0")), std::nullopt);
    EXPECT_EQ(measuredWith(atom("hdlr", u32(0), u32(0))), std::nullopt);
    EXPECT_EQ(measuredWith(atom("hdlr", text("pictpictpi"))), std::nullopt);
}

TEST(KXPictureSizeHEIF, NeedsEachOfItsBoxes)
{
    Bytes const container = atom("ipco", ispe(40, 30)), associations = ipma(association(1, { 1 }));
    EXPECT_EQ(measured(heicType()), std::nullopt);
    EXPECT_EQ(measured(join(heicType(), pictureMetadata())), std::nullopt);
    EXPECT_EQ(measured(join(heicType(), pictureMetadata(pitm(1)))), std::nullopt);
    EXPECT_EQ(measured(join(heicType(), pictureMetadata(atom("iprp", container, associations)))),
        std::nullopt);
    EXPECT_EQ(measuredIn({}), std::nullopt);
    EXPECT_EQ(measuredIn(container), std::nullopt);
    EXPECT_EQ(measuredIn(associations), std::nullopt);
    EXPECT_EQ(measuredIn(join(associations, container)), sizeOf40By30);
    // Without the metadata around it, or within another box.
    Bytes const boxes = join(pitm(1), atom("iprp", container, associations));
    EXPECT_EQ(measured(join(heicType(), boxes)), std::nullopt);
    EXPECT_EQ(measured(join(heicType(), atom("moov", pictureMetadata(boxes)))), std::nullopt);
}

TEST(KXPictureSizeHEIF, OnlyThePrimaryItemIsMeasured)
{
    Bytes const properties = atom("iprp", twoSizes(),
        ipma(association(3, { 2 }), association(1, { 1 }), association(2, { 2 })));
    auto const measuredPrimary = [&properties](Bytes const& primary) {
        return measured(join(heicType(), pictureMetadata(primary, properties)));
    };
    EXPECT_EQ(measuredPrimary(pitm(1)), sizeOf40By30);
    EXPECT_EQ(measuredPrimary(pitm(2)), (KXSize { 7, 8 }));
    EXPECT_EQ(measuredPrimary(pitm(4)), std::nullopt);
    EXPECT_EQ(measuredPrimary(atom("pitm", u32(1 << 24), u32(1))), sizeOf40By30);
    EXPECT_EQ(measuredPrimary(atom("pitm", u32(1 << 24), u16(1))), std::nullopt);
    EXPECT_EQ(measuredPrimary(atom("pitm", u32(1 << 24), u32(0x10001))), std::nullopt);
    EXPECT_EQ(measuredPrimary(atom("pitm", u32(0), u8(1))), std::nullopt);
    EXPECT_EQ(measuredPrimary(atom("pitm", u24(0))), std::nullopt);
    EXPECT_EQ(measuredPrimary(join(pitm(2), pitm(1))), (KXSize { 7, 8 }));
}

TEST(KXPictureSizeHEIF, AssociationsAreNarrowOrWide)
{
    // Version 1 has items of 32 bits, flag 1 numbers of 16.
    auto const measuredBox = [](std::uint32_t versionAndFlags, Bytes const& entries) {
        return measuredIn(join(twoSizes(), atom("ipma", u32(versionAndFlags), u32(2), entries)));
    };
    Bytes const none = u8(0);
    EXPECT_EQ(measuredBox(0, join(u16(9), none, u16(1), u8(1), u8(2))), (KXSize { 7, 8 }));
    EXPECT_EQ(measuredBox(1, join(u16(9), none, u16(1), u8(1), u16(2))), (KXSize { 7, 8 }));
    EXPECT_EQ(measuredBox(1 << 24, join(u32(9), none, u32(1), u8(1), u8(2))), (KXSize { 7, 8 }));
    EXPECT_EQ(
        measuredBox(1 << 24 | 1, join(u32(9), none, u32(1), u8(1), u16(2))), (KXSize { 7, 8 }));
    EXPECT_EQ(
        measuredBox(1, join(u16(9), u8(2), u32(0x10001), u16(1), u8(1), u16(1))), sizeOf40By30);
    // Other flags do not matter.
    EXPECT_EQ(measuredBox(0xFFFFFE, join(u16(9), none, u16(1), u8(1), u8(2))), (KXSize { 7, 8 }));
    // Essential ones have their uppermost bit set.
    EXPECT_EQ(measuredBox(0, join(u16(9), none, u16(1), u8(1), u8(0x82))), (KXSize { 7, 8 }));
    EXPECT_EQ(measuredBox(1, join(u16(9), none, u16(1), u8(1), u16(0x8002))), (KXSize { 7, 8 }));
    EXPECT_EQ(measuredBox(1, join(u16(9), none, u16(1), u8(1), u16(0x0102))), std::nullopt);
}

TEST(KXPictureSizeHEIF, SeveralAssociationBoxesAddUp)
{
    Bytes const other = ipma(association(2, { 2 })), own = ipma(association(1, { 1 }));
    EXPECT_EQ(measuredIn(join(twoSizes(), other, own)), sizeOf40By30);
    EXPECT_EQ(measuredIn(join(own, twoSizes(), other)), sizeOf40By30);
    EXPECT_EQ(measuredIn(join(twoSizes(), own, ipma(association(1, { 2 })))), sizeOf40By30);
    EXPECT_EQ(measuredIn(join(twoSizes(), other, ipma(), own)), sizeOf40By30);
}

TEST(KXPictureSizeHEIF, OfSeveralEntriesOfAnItemTheFirstCounts)
{
    EXPECT_EQ(measuredIn(join(twoSizes(), ipma(association(1, { 1 }), association(1, { 2 })))),
        sizeOf40By30);
}

TEST(KXPictureSizeHEIF, PropertyThatIsNotThereShowsDamage)
{
    EXPECT_EQ(measuredIn(join(twoSizes(), ipma(association(1, { 1, 3 })))), std::nullopt);
    EXPECT_EQ(measuredIn(join(twoSizes(), ipma(association(1, { 0x7F, 1 })))), std::nullopt);
    EXPECT_EQ(
        measuredIn(join(twoSizes(), ipma(association(1, { 0, 1, 0x80 })))), sizeOf40By30); // None.
    EXPECT_EQ(measuredIn(join(twoSizes(), ipma(association(1, {})))), std::nullopt);
    EXPECT_EQ(measuredIn(join(twoSizes(), ipma(association(1, { 0 })))), std::nullopt);
    // Nor may the properties before it be damaged.
    EXPECT_EQ(measuredIn(join(atom("ipco", atomClaiming(7, "free"), ispe(40, 30)),
                  ipma(association(1, { 2 })))),
        std::nullopt);
}

TEST(KXPictureSizeHEIF, SizeNeedsItsFields)
{
    EXPECT_EQ(measured(heifOf(atom("pixi", u32(0), u32(40), u32(30)))), std::nullopt);
    EXPECT_EQ(measured(heifOf(atom("ispe", u32(0), u32(40), u24(30)))), std::nullopt);
    EXPECT_EQ(measured(heifOf(atom("ispe"))), std::nullopt);
    EXPECT_EQ(measured(heifOf(ispe(40, 30), ispe(7, 8))), sizeOf40By30);
}

TEST(KXPictureSizeHEIF, QuarterTurnsSwapTheSides)
{
    for (std::uint32_t turn = 0; turn < 256; ++turn)
        EXPECT_EQ(measured(heifOf(ispe(40, 30), irot(turn))),
            (turn % 2 ? KXSize { 30, 40 } : sizeOf40By30))
            << turn;
    EXPECT_EQ(measured(heifOf(ispe(40, 30), irot(1), irot(3))), sizeOf40By30);
    EXPECT_EQ(measured(heifOf(irot(1), ispe(40, 30))), (KXSize { 30, 40 }));
    EXPECT_EQ(measured(heifOf(ispe(40, 30), atom("imir", u8(1)))), sizeOf40By30);
    EXPECT_EQ(measured(heifOf(ispe(40, 30), atom("irot"))), std::nullopt);
    EXPECT_EQ(measured(heifOf(ispe(40, 30), atom("irot"), irot(1))), std::nullopt);
}

TEST(KXPictureSizeHEIF, TurnOfAnotherItemDoesNotMatter)
{
    EXPECT_EQ(measuredIn(join(atom("ipco", ispe(40, 30), irot(1)),
                  ipma(association(2, { 1, 2 }), association(1, { 1 })))),
        sizeOf40By30);
}

TEST(KXPictureSizeHEIF, CleanApertureCrops)
{
    EXPECT_EQ(cropped(clap({ 20 }, { 10 })), (KXSize { 20, 10 }));
    EXPECT_EQ(cropped(clap({ 39 }, { 29 }, { -1, 2 }, { 1, 2 })), (KXSize { 39, 29 }));
    EXPECT_EQ(cropped(clap({ 40 }, { 30 })), sizeOf40By30);
    EXPECT_EQ(cropped(clap({ 1 }, { 1 }, { -39, 2 }, { 29, 2 })), (KXSize { 1, 1 }));
    EXPECT_EQ(cropped(clap({ 60, 3 }, { 1000, 100 })), (KXSize { 20, 10 }));
}

TEST(KXPictureSizeHEIF, PartsOfPixelsAreRounded)
{
    EXPECT_EQ(cropped(clap({ 61, 3 }, { 32, 3 })), (KXSize { 20, 11 }));
    EXPECT_EQ(cropped(clap({ 41, 2 }, { 21, 2 })), (KXSize { 21, 11 }));
}

TEST(KXPictureSizeHEIF, ApertureEndsWithThePicture)
{
    EXPECT_EQ(cropped(clap({ 400 }, { 300 })), sizeOf40By30);
    EXPECT_EQ(cropped(clap({ 20 }, { 10 }, { -15 }, { -12 })), (KXSize { 15, 9 })); // Rounded up.
    EXPECT_EQ(cropped(clap({ 20 }, { 10 }, { 15 }, { 12 })), (KXSize { 15, 8 }));
    EXPECT_EQ(cropped(clap({ 60, 3 }, { 30, 3 }, { 45, 3 }, { 24, 2 })), (KXSize { 15, 8 }));
    // Half a pixel on the left belongs to it, and none at the top does.
    EXPECT_EQ(cropped(clap({ 20 }, { 10 }, { 21, 2 }, { 21, 2 })), (KXSize { 20, 9 }));
    EXPECT_EQ(cropped(clap({ 20 }, { 10 }, { -23, 2 }, { -23, 2 })), (KXSize { 19, 9 }));
}

TEST(KXPictureSizeHEIF, ApertureWithoutAPixelIsAbsent)
{
    EXPECT_EQ(cropped(clap({ 20 }, { 10 }, { 30 })), std::nullopt);
    EXPECT_EQ(cropped(clap({ 20 }, { 10 }, { -30 })), std::nullopt);
    EXPECT_EQ(cropped(clap({ 20 }, { 10 }, { 0 }, { 20 })), std::nullopt);
    EXPECT_EQ(cropped(clap({ 20 }, { 10 }, { 0 }, { -21 })), std::nullopt);
    EXPECT_EQ(cropped(clap({ 0 }, { 10 })), std::nullopt);
    EXPECT_EQ(cropped(clap({ 20 }, { 0 })), std::nullopt);
    EXPECT_EQ(cropped(clap({ -20 }, { 10 })), std::nullopt);
    EXPECT_EQ(cropped(clap({ 20 }, { -10 })), std::nullopt);
    EXPECT_EQ(cropped(clap({ 20 }, { 10 }, { 0x7FFFFFFF }, { 0 })), std::nullopt);
}

TEST(KXPictureSizeHEIF, ApertureNeedsItsFields)
{
    for (int zero = 0; zero < 4; ++zero) {
        Fraction fields[] { { 20 }, { 10 }, { 0 }, { 0 } };
        fields[zero].denominator = 0;
        EXPECT_EQ(cropped(clap(fields[0], fields[1], fields[2], fields[3])), std::nullopt) << zero;
    }
    EXPECT_EQ(cropped(atom("clap", u32(20), u32(1), u32(10), u32(1), u64(1), u32(0), u24(1))),
        std::nullopt);
}

TEST(KXPictureSizeHEIF, TurnsAndApertureApplyInTheirOrder)
{
    Bytes const aperture = clap({ 20 }, { 10 }), tall = clap({ 10 }, { 36 });
    EXPECT_EQ(measured(heifOf(ispe(40, 30), aperture, irot(1))), (KXSize { 10, 20 }));
    EXPECT_EQ(measured(heifOf(ispe(40, 30), irot(1), tall)), (KXSize { 10, 36 }));
    EXPECT_EQ(measured(heifOf(ispe(40, 30), tall, irot(1))), (KXSize { 30, 10 }));
    // As they are associated, whatever their order in the container.
    EXPECT_EQ(measuredIn(join(
                  atom("ipco", tall, irot(1), ispe(40, 30)), ipma(association(1, { 3, 2, 1 })))),
        (KXSize { 10, 36 }));
}

TEST(KXPictureSizeHEIF, CutOffInItsMetadataIsAbsent)
{
    Bytes const picture = heifOf(ispe(40, 30), irot(1), clap({ 20 }, { 10 }));
    expectSizeFrom(picture.size(), join(picture, atom("mdat", zeros(30))));
}
