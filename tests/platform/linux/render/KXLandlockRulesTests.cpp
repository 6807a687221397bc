#include "kxmd/platform/linux/render/program/KXLandlockRulesPrivate.h"

#include <gtest/gtest.h>

// The kernel's documentation, "Landlock: unprivileged access control", "Previous limitations".

TEST(KXLandlockRules, KernelIsAskedForWhatItKnows)
{
    struct Expected {
        long version;
        std::uint64_t files, network, scope;
        std::size_t length;
    };
    for (auto const& [version, files, network, scope, length] : {
             Expected { 1, 0x1FFF, 0, 0, 8 },
             { 2, 0x3FFF, 0, 0, 8 }, // Linking and renaming between folders.
             { 3, 0x7FFF, 0, 0, 8 }, // Truncating.
             { 4, 0x7FFF, 3, 0, 16 }, // Binding and connecting.
             { 5, 0xFFFF, 3, 0, 16 }, // Control of devices.
             { 6, 0xFFFF, 3, 3, 24 }, // Abstract sockets and signals.
             { 7, 0xFFFF, 3, 3, 24 },
         }) {
        KXLandlockRules const rules(version);
        EXPECT_EQ(rules.files, files) << version;
        EXPECT_EQ(rules.network, network) << version;
        EXPECT_EQ(rules.scope, scope) << version;
        EXPECT_EQ(KXLandlockRules::lengthInVersion(version), length) << version;
    }
}
