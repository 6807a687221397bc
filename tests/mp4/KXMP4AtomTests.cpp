#include "kxmd/mp4/KXMP4Atom.h"

#include "support/Builders.h"

#include <gtest/gtest.h>

using namespace build;

TEST(KXMP4Atom, EightZeroBytesGiveARootWithoutChildren)
{
    auto const root = KXMP4Atom::atomWithAbstractData(*reader(zeros(8)));
    EXPECT_TRUE(root->children().empty());
    EXPECT_EQ(root->tag(), "ROOT");
    EXPECT_EQ(root->size(), 8u);
}
