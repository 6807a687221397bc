#include "kxmd/thumbnails/KXMDEncodedPictures.h"

#include "support/Pictures.h"

#include <gtest/gtest.h>

namespace {

KXImage::Ref image() { return pictures::solid(2, 2, pictures::red); }

}

TEST(KXMDEncodedPictures, KnowsPicturesByIdentity)
{
    KXMDEncodedPictures encoded;
    auto const one = image(), other = image();
    EXPECT_EQ(encoded.jpgOfImage(one).length(), 0u);
    encoded.setJPGOfImage(KXData({ 1 }), one);
    encoded.setJPGOfImage(KXData({ 1, 2 }), other);
    EXPECT_EQ(encoded.jpgOfImage(one).length(), 1u);
    EXPECT_EQ(encoded.jpgOfImage(other).length(), 2u);
    encoded.setJPGOfImage(KXData({ 1, 2, 3 }), one);
    EXPECT_EQ(encoded.jpgOfImage(one).length(), 3u);
    EXPECT_EQ(encoded.jpgOfImage(other).length(), 2u);
}

TEST(KXMDEncodedPictures, NeitherKeepsPicturesNorTakesANewOneForADeadOne)
{
    KXMDEncodedPictures encoded;
    auto first = image();
    std::weak_ptr<KXImage const> const alive = first;
    encoded.setJPGOfImage(KXData({ 1 }), first);
    first.reset();
    EXPECT_TRUE(alive.expired());
    for (int i = 0; i < 100; ++i) // Some lie where the first one lay.
        EXPECT_EQ(encoded.jpgOfImage(image()).length(), 0u);
}
