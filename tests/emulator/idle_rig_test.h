#pragma once

#include <gtest/gtest.h>

#include <android-base/result.h>

#include "rig/rig.h"

// Base of the tests of the rig's parts in this process: the emulator, the sandbox and the peers,
// with no daemon running, started afresh for each test. A sanitizer report from the sandbox fails
// the test even when everything the test looked at held.
class IdleRigTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_RESULT_OK(rig_.Start()); }
    void TearDown() override { EXPECT_RESULT_OK(rig_.CheckHealth()); }

    tarvo_emu::Rig& rig() { return rig_; }

  private:
    tarvo_emu::Rig rig_{{.start_daemon = false}};
};
