#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "modem_stat_config.h"
#include "userspace_log_config.h"

namespace tarvo {

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What the loader would send for one entry: "module v t", or "none" when no module is named.
std::string Enable(const std::string& entry) {
    const std::optional<ModemStatModuleConfig> config = parse_modem_stat_entry(entry);
    if (!config) return "none";
    return config->module + " " + std::to_string(config->v) + " " + std::to_string(config->t);
}

TEST(ModemStatConfigTest, EntriesAreRunsBetweenBarsAndLineEnds) {
    EXPECT_THAT(split_modem_stat_entries("L1:v=3,t=10|RRC"), ElementsAre("L1:v=3,t=10", "RRC"));
    EXPECT_THAT(split_modem_stat_entries("A\r\nB\r\n\r\n||C|\n"), ElementsAre("A", "B", "C"));
    EXPECT_THAT(split_modem_stat_entries("\r\n|"), IsEmpty());
    // Read into a C string: a NUL byte ends the text.
    EXPECT_THAT(split_modem_stat_entries(std::string("A|B\0|C", 6)), ElementsAre("A", "B"));
    // Blanks are not separators.
    EXPECT_THAT(split_modem_stat_entries(" A | B "), ElementsAre(" A ", " B "));
}

TEST(ModemStatConfigTest, ModuleAndItems) {
    // The last v and t win; t keeps its bits when negative.
    EXPECT_EQ(Enable("L1:t=1,v=2,t=7,v=5"), "L1 5 7");
    EXPECT_EQ(Enable("L1:t=-1"), "L1 -1 4294967295");
    // Anything after a second ':' is ignored; empty pieces and items are skipped.
    EXPECT_EQ(Enable("L1:v=1:t=9"), "L1 1 0");
    EXPECT_EQ(Enable("L1::v=1,,t=2"), "L1 1 2");
    // With the ':' runs taken out, the first piece left is the module.
    EXPECT_EQ(Enable(":v=3"), "v=3 -1 0");
    EXPECT_EQ(Enable(":"), "none");
    EXPECT_EQ(Enable("::"), "none");
}

TEST(ModemStatConfigTest, ItemsThatDoNotScanAreIgnored) {
    EXPECT_EQ(Enable("L1:V=4,T=4"), "L1 -1 0");
    // The blank after the comma is taken as the letter.
    EXPECT_EQ(Enable("L1:t=2, v=3"), "L1 -1 2");
    // %d skips blanks before the number and stops at its end.
    EXPECT_EQ(Enable("L1:v= 4,t=5x"), "L1 4 5");
}

TEST(UserspaceLogConfigTest, OneNamePerLineTakenAsItStands) {
    EXPECT_THAT(split_userspace_log_names("A\nB\n"), ElementsAre("A", "B"));
    EXPECT_THAT(split_userspace_log_names("A\n\n B \n"), ElementsAre("A", "", " B "));
    EXPECT_THAT(split_userspace_log_names("\n"), ElementsAre(""));
    EXPECT_THAT(split_userspace_log_names(""), IsEmpty());
    EXPECT_THAT(split_userspace_log_names(std::string("a\0b\n", 4)),
                ElementsAre(std::string("a\0b", 3)));
}

}  // namespace

}  // namespace tarvo
