#include "host_property_store.h"

#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include <android-base/file.h>
#include <gtest/gtest.h>

namespace tarvo {

class HostPropertyStoreTest : public ::testing::Test {
  protected:
    // TemporaryDir removes only an empty directory.
    ~HostPropertyStoreTest() override {
        unlink((std::string(dir_.path) + "/" + HostPropertyStore::kAreaFile).c_str());
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
    // Longer than any file name may be.
    const std::string long_name = "vendor." + std::string(300, 'n');
    EXPECT_EQ(store_.Set(long_name, "long"), 0);
    EXPECT_EQ(store_.Get(long_name), "long");
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

TEST_F(HostPropertyStoreTest, RefusedSetsChangeNothing) {
    ASSERT_EQ(store_.Set("vendor.kept", "old"), 0);
    EXPECT_EQ(store_.Set("vendor.kept", std::string(92, 'x')), -1);
    EXPECT_EQ(store_.Set("vendor.kept", std::string("a\0b", 3)), -1);
    EXPECT_EQ(store_.Get("vendor.kept"), "old");

    // A full area refuses new names and still changes the values it holds.
    int added = 0;
    while (store_.Set("vendor.fill." + std::string(200, 'f') + std::to_string(added), "1") == 0) {
        ASSERT_LT(++added, 100000);
    }
    EXPECT_EQ(store_.Get("vendor.fill." + std::string(200, 'f') + std::to_string(added)),
              std::nullopt);
    EXPECT_EQ(store_.Set("vendor.kept", "new"), 0);
    EXPECT_EQ(store_.Get("vendor.kept"), "new");
    EXPECT_EQ(store_.Get("vendor.fill." + std::string(200, 'f') + "0"), "1");

    store_.Clear();
    EXPECT_EQ(store_.Get("vendor.kept"), std::nullopt);
    EXPECT_EQ(store_.Set("vendor.kept", "again"), 0);
}

// The rig and the daemon each map the store: what one sets, the other reads at once.
TEST_F(HostPropertyStoreTest, EveryMappingSeesEverySetAtOnce) {
    ASSERT_EQ(store_.Set("vendor.first", "1"), 0);
    HostPropertyStore other(dir_.path);
    ASSERT_EQ(other.Get("vendor.first"), "1");

    ASSERT_EQ(store_.Set("vendor.first", "2"), 0);
    ASSERT_EQ(store_.Set("vendor.later", "3"), 0);
    EXPECT_EQ(other.Get("vendor.first"), "2");
    EXPECT_EQ(other.Get("vendor.later"), "3");
    ASSERT_EQ(other.Set("ro.vendor.other", std::string(300, 'o')), 0);
    EXPECT_EQ(store_.Get("ro.vendor.other"), std::string(300, 'o'));
}

TEST_F(HostPropertyStoreTest, AReaderNeverSeesHalfOfAChange) {
    const std::string short_value(3, 's');
    const std::string long_value(91, 'L');
    ASSERT_EQ(store_.Set("vendor.flip", short_value), 0);
    HostPropertyStore reader(dir_.path);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 200000; ++i)
            store_.Set("vendor.flip", i % 2 ? long_value : short_value);
        done = true;
    });
    int torn = 0;
    while (!done) {
        char value[PROPERTY_VALUE_MAX];
        const std::optional<size_t> length = reader.GetPrefix("vendor.flip", value, sizeof(value));
        const std::string read = length ? std::string(value, *length) : "";
        torn += read != short_value && read != long_value;
    }
    writer.join();
    EXPECT_EQ(torn, 0);
}

TEST(HostPropertyStoreMissingDirTest, EverySetIsRefused) {
    HostPropertyStore store("/nonexistent/tarvo-properties");
    EXPECT_EQ(store.Set("vendor.a", "1"), -1);
    EXPECT_EQ(store.Get("vendor.a"), std::nullopt);
}

}  // namespace tarvo
