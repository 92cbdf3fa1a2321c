// SPDX-License-Identifier: ISC
// Runs the function tests inside a private world, where the daemon's fixed paths are theirs alone.
#include <gtest/gtest.h>

#include "tests/world/world.h"

int main(int argc, char **argv)
{
    // First of all, since a test that ran outside would write to this machine's files.
    kelm_test::enter_private_world(KELM_SOURCE_DIR, KELM_BUILD_DIR);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
