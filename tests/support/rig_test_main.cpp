#include <gtest/gtest.h>

#include "rig/rig.h"

// The emulator's mounts live in this process's own mount namespace, so they vanish with it even
// when a test crashes or times out.
int main(int argc, char** argv) {
    if (!tarvo_emu::EnterPrivateMountNamespace()) {
        fprintf(stderr, "cannot enter a private mount namespace; mounts may outlive a crash\n");
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
