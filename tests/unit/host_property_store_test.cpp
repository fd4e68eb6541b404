#include "host_property_store.h"

#include <dirent.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <android-base/file.h>
#include <gtest/gtest.h>

namespace tarvo {

class HostPropertyStoreTest : public ::testing::Test {
  protected:
    std::vector<std::string> Entries() const {
        std::vector<std::string> names;
        DIR* dir = opendir(dir_.path);
        while (dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        closedir(dir);
        return names;
    }

    TemporaryDir dir_;
    HostPropertyStore store_{dir_.path};
};

TEST_F(HostPropertyStoreTest, NamesAreLettersDigitsAndUnderscoreDotDashColonAt) {
    EXPECT_EQ(store_.Set("vendor.A_z-0:9@x", "1"), 0);
    EXPECT_EQ(store_.Get("vendor.A_z-0:9@x"), "1");

    for (const char* bad :
         {"", "a/b", "a b", "a\nb", "..", ".", "a$", "näme", ".a", "a.", "persist..x", "a...b"}) {
        EXPECT_EQ(store_.Set(bad, "1"), -1) << bad;
        EXPECT_EQ(store_.Get(bad), std::nullopt) << bad;
    }
    EXPECT_EQ(Entries(), std::vector<std::string>{"vendor.A_z-0:9@x"});
}

TEST_F(HostPropertyStoreTest, ValuesUpTo91BytesExceptUnderRo) {
    const std::string longest(91, 'v');
    EXPECT_EQ(store_.Set("vendor.v", longest), 0);
    EXPECT_EQ(store_.Set("vendor.v", longest + "w"), -1);
    EXPECT_EQ(store_.Get("vendor.v"), longest);

    EXPECT_EQ(store_.Set("ro.vendor.long", std::string(200, 'r')), 0);
    EXPECT_EQ(store_.Get("ro.vendor.long"), std::string(200, 'r'));
}

TEST_F(HostPropertyStoreTest, ValuesMustBeUtf8AsThePlatformDecodesIt) {
    for (const char* good : {"", "plain", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                             "\xEF\xBF\xBF", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(store_.Set("vendor.utf8", good), 0) << good;
        EXPECT_EQ(store_.Get("vendor.utf8"), good);
    }
    // A stray continuation byte, a lead byte that nothing follows, an overlong "/", a surrogate,
    // a code point above U+10FFFF and a byte that never begins a sequence.
    for (const char* bad : {"a\xFF.bin", "\x80", "x\xC3", "\xE2\x82", "\xC0\xAF", "\xED\xA0\x80",
                            "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"}) {
        EXPECT_EQ(store_.Set("vendor.utf8", bad), -1) << bad;
    }
    EXPECT_EQ(store_.Get("vendor.utf8"), "\xF4\x8F\xBF\xBF");
    // Long values under "ro." are checked all the same.
    EXPECT_EQ(store_.Set("ro.vendor.bad", std::string(100, 'r') + "\xFF"), -1);
}

TEST_F(HostPropertyStoreTest, RoPropertiesAreSetOnceAndEmptyValuesExist) {
    EXPECT_EQ(store_.Get("ro.vendor.once"), std::nullopt);
    EXPECT_EQ(store_.Set("ro.vendor.once", ""), 0);
    EXPECT_EQ(store_.Get("ro.vendor.once"), "");
    EXPECT_EQ(store_.Set("ro.vendor.once", "again"), -1);
    EXPECT_EQ(store_.Get("ro.vendor.once"), "");

    // Only the "ro." prefix is write-once.
    EXPECT_EQ(store_.Set("rox.vendor", "1"), 0);
    EXPECT_EQ(store_.Set("rox.vendor", "2"), 0);
    EXPECT_EQ(store_.Get("rox.vendor"), "2");
}

TEST_F(HostPropertyStoreTest, RefusedSetsLeaveNoTraceAndReplacementIsWhole) {
    ASSERT_EQ(store_.Set("vendor.kept", "old"), 0);
    EXPECT_EQ(store_.Set("vendor.kept", std::string(92, 'x')), -1);
    EXPECT_EQ(store_.Set("vendor.kept", std::string("a\0b", 3)), -1);
    EXPECT_EQ(store_.Get("vendor.kept"), "old");

    EXPECT_EQ(Entries(), std::vector<std::string>{"vendor.kept"});
}

TEST_F(HostPropertyStoreTest, ASetReplacesTheFileInsteadOfRewritingIt) {
    const std::string path = std::string(dir_.path) + "/vendor.swap";
    TemporaryDir elsewhere;
    const std::string snapshot = std::string(elsewhere.path) + "/snapshot";
    ASSERT_EQ(store_.Set("vendor.swap", "old"), 0);
    // A reader holding the old file keeps seeing the whole old value, never a half-written one.
    ASSERT_EQ(link(path.c_str(), snapshot.c_str()), 0);

    ASSERT_EQ(store_.Set("vendor.swap", "new"), 0);
    std::string held;
    ASSERT_TRUE(android::base::ReadFileToString(snapshot, &held));
    unlink(snapshot.c_str());  // TemporaryDir removes only an empty directory
    EXPECT_EQ(held, "old");
    EXPECT_EQ(store_.Get("vendor.swap"), "new");
    EXPECT_EQ(Entries(), std::vector<std::string>{"vendor.swap"});
}

TEST_F(HostPropertyStoreTest, ValuesSeededByOtherToolsAreRead) {
    ASSERT_TRUE(android::base::WriteStringToFile("seeded", std::string(dir_.path) + "/persist.a"));
    EXPECT_EQ(store_.Get("persist.a"), "seeded");
}

TEST(HostPropertyStoreMissingDirTest, EverySetIsRefused) {
    HostPropertyStore store("/nonexistent/tarvo-properties");
    EXPECT_EQ(store.Set("vendor.a", "1"), -1);
    EXPECT_EQ(store.Get("vendor.a"), std::nullopt);
}

}  // namespace tarvo
