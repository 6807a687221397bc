#pragma once

#include "support/Builders.h"
#include "support/Fakes.h"
#include "support/Pictures.h"

#include <gtest/gtest.h>

/// A test of album covers on a machine that encodes pictures as it is told.
class CoverTest : public testing::Test {
protected:
    CoverTest() { KXPlatform::setShared(machine.platform()); }
    ~CoverTest() override { KXPlatform::setShared(nullptr); }

    /// A picture that becomes `encoded` when it is written.
    KXImage::Ref imageEncodedAs(build::Bytes encoded) const
    {
        machine.pictureLoader->setJPGRepresentation(KXData(std::move(encoded)));
        return pictures::solid(1, 1, pictures::red);
    }

    /// The bytes of an edited buffer.
    static build::Bytes bytesOf(KXMutableData const& data)
    {
        return { data.bytes().begin(), data.bytes().end() };
    }

    FakeMachine const machine;
};
