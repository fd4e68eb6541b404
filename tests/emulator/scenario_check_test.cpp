// Scenarios checked when loaded: what the player would refuse about a step's own arguments is
// refused with the step's file, line and column, before any rig starts.

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include <android-base/file.h>
#include <android-base/result.h>

#include "process/child_process.h"
#include "scenario/scenario_loader.h"

namespace {

struct Refused {
    std::string text;
    std::string error;
};

const Refused kRefused[] = {
    {"initial_state: 4\nstep { sleep_ms: 1 }\n  step { expect_log { text_regex: \"(a\" } }\n",
     "line 3 column 3: step 1: bad regular expression \"(a\""},
    {"step { send_generated { message { file { write_request { file_name: \"x\" } } }\n"
     "                        data { size: 4 } block_size: 0 } }\n",
     "line 1 column 1: step 0: block_size 0"},
    {"step { mark: \"before\" }\nstep { expect_usage { mark: \"befor\" } }\n",
     "line 2 column 1: step 1: no mark \"befor\" before this step"},
    {"step { expect_log { text: \"x\" since_mark: \"later\" } }\nstep { mark: \"later\" }\n",
     "line 1 column 1: step 0: no mark \"later\" before this step"},
    {"step { repeat { times: 2 step { sleep_ms: 1 }\n  step { expect_file { path: \"/x\" "
     "content_regex: \"[\" } } } }\n",
     "line 2 column 3: step 0, step 1: bad regular expression \"[\""},
    {"step { fault: NO_FAULT }\n", "line 1 column 1: step 0: no fault named"},
    {"step { expect_no_log { text_regex: \"a)\" } }\n",
     "line 1 column 1: step 0: bad regular expression \"a)\""},
    {"step { note: \"x\" }\nstep { send_generated { message { file { read_request { file_name: "
     "\"x\" } } } data { size: 4 } } }",
     "line 2 column 1: step 1: a read train needs a block_size above 0"},
    {"step { send_generated { message { extended_log { indication { } } } data { size: 4 } "
     "block_size: 2 } }",
     "line 1 column 1: step 0: ExtendedLogIndication has no offset field"},
    {"step { send_generated { message { property { read_request { name: \"x\" } } } } }",
     "line 1 column 1: step 0: PropertyReadRequest has no data field to send, nor offset and "
     "max_data_size to read by"},
};

TEST(ScenarioCheckTest, StepArgumentsThePlayerWouldRefuseAreRefusedWhereTheyStand) {
    for (const Refused& refused : kRefused) {
        const android::base::Result<tarvo_scenario::Scenario> loaded =
            tarvo_emu::ParseScenario(refused.text, "x.textproto");
        ASSERT_FALSE(loaded.ok()) << refused.text;
        EXPECT_EQ(loaded.error().message().rfind("x.textproto: " + refused.error, 0), 0u)
            << loaded.error().message();
    }
    // A mark set inside a repeat is known after it, and a regex that compiles passes.
    EXPECT_TRUE(tarvo_emu::ParseScenario("step { repeat { times: 1 step { mark: \"m\" } } }\n"
                                         "step { expect_log { text_regex: \"a+\" since_mark: "
                                         "\"m\" } }\nstep { expect_usage { mark: \"m\" } }",
                                         "y")
                    .ok());
}

TEST(ScenarioCheckTest, RunRefusesABadStepBeforeTheRigStarts) {
    TemporaryDir dir;
    const std::string tmp = std::string(dir.path) + "/tmp";
    std::filesystem::create_directory(tmp);
    for (size_t i = 0; i < 3; ++i) {
        const std::string file = std::string(dir.path) + "/bad.textproto";
        ASSERT_TRUE(android::base::WriteStringToFile(kRefused[i].text, file));
        const tarvo_emu::ProcessResult result =
            tarvo_emu::RunProcess(
                {"/usr/bin/env", "TMPDIR=" + tmp, TARVO_BINARY_DIR "/tarvo-emu", "run", file},
                {.separate_stderr = true}, std::chrono::seconds(60))
                .value();
        EXPECT_EQ(result.status, 1) << result.errors;
        EXPECT_NE(result.errors.find(file + ": " + kRefused[i].error), std::string::npos)
            << result.errors;
        // No rig's tree was made, and the daemon printed nothing.
        EXPECT_TRUE(std::filesystem::is_empty(tmp)) << result.errors;
        EXPECT_EQ(result.output, "") << result.output;
    }
}

}  // namespace
