#pragma once

#include "kxmd/platform/KXPlatform.h"
#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"
#include "support/Builders.h"

#include <gtest/gtest.h>
#include <kxmd/version.h>

#include <initializer_list>
#include <linux/landlock.h>
#include <memory>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

/// This machine's own picture loader, with what it can do beyond other platforms.
inline std::shared_ptr<KXRenderPictureLoader const> rendersOfThisMachine()
{
    return std::dynamic_pointer_cast<KXRenderPictureLoader const>(
        KXPlatform::platformOfThisMachine()->pictureLoader);
}

/// A server that is asked for every picture.
inline KXRenderPictureLoader::Servers oneForAll(std::shared_ptr<KXRenderServer const> server)
{
    return { server, server, std::move(server) };
}

/// Whether the kernel can keep programs from files (Landlock).
inline bool isConfinementThere()
{
    return ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) >= 1;
}

/// The path of a program that decodes.
inline std::string programOfOurs(std::string const& name)
{
    return KXRenderServer::installedProgram("kxmd/" + name + "-" + KXVersion());
}

/// Expects that a program of ours answers at once that it does none of these things.
inline void expectUnknown(
    std::string const& program, std::initializer_list<KXRenderRequest::Operation> operations)
{
    KXRenderServer const server(programOfOurs(program));
    for (auto const operation : operations) {
        auto const data = build::reader(build::png(1, 1));
        auto const reply = server.replyTo({ .operation = operation, .length = data->length() },
            *data, KXRenderLimits::forPictures());
        ASSERT_TRUE(reply) << program;
        EXPECT_EQ(reply->answer.outcome, KXRenderAnswer::Outcome::unknown) << program;
    }
}
