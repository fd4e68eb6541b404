// The soak's model of the sandbox's tree: how names resolve, where files may be written, and what
// opening, renaming and removing do to a file's bytes and mode. A wrong answer here makes the soak
// blame the daemon for what the model got wrong, or pass what the daemon got wrong.

#include "soak/model_file_system.h"

#include <sys/stat.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarvo_emu {
namespace {

using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::Optional;

constexpr mode_t kFileMode = 0664;
constexpr mode_t kOtherMode = 0600;

class ModelFileSystemTest : public ::testing::Test {
  protected:
    ModelFileSystem files_{
        {"/data", "/data/radio", "/data/radio/logs", "/data/radio/logs2", "/vendor", "/vendor/etc"},
        {"/vendor", "/data/radio/logs"}};
};

TEST_F(ModelFileSystemTest, ResolvesNamesAsTheKernelDoes) {
    EXPECT_THAT(files_.Resolve("/data/radio/a.txt"), Optional(Eq("/data/radio/a.txt")));
    EXPECT_THAT(files_.Resolve("//data/./radio//a.txt"), Optional(Eq("/data/radio/a.txt")));
    EXPECT_THAT(files_.Resolve("/data/radio/logs/../a.txt"), Optional(Eq("/data/radio/a.txt")));
    EXPECT_THAT(files_.Resolve("/data/radio/../../../../data/x"), Optional(Eq("/data/x")));
    EXPECT_THAT(files_.Resolve("/data/radio/logs/.."), Optional(Eq("/data/radio")));
}

TEST_F(ModelFileSystemTest, RefusesAPathThroughWhatIsNoDirectory) {
    // The daemon's open fails with ENOENT or ENOTDIR there.
    EXPECT_EQ(files_.Resolve("/data/missing/a.txt"), std::nullopt);
    files_.Open("/data/radio/a.txt", kFileMode);
    EXPECT_EQ(files_.Resolve("/data/radio/a.txt/b"), std::nullopt);
    EXPECT_EQ(files_.Resolve("/data/radio/a.txt/../b"), std::nullopt);
    EXPECT_EQ(files_.Resolve("/data/missing/../radio/b"), std::nullopt);
}

TEST_F(ModelFileSystemTest, WritesOnlyInWritableDirectories) {
    EXPECT_TRUE(files_.IsWritable("/data/radio/a.txt"));
    EXPECT_TRUE(files_.IsWritable("/data/radio/logs2/a.txt"));
    EXPECT_FALSE(files_.IsWritable("/data/radio/logs/a.txt"));
    EXPECT_FALSE(files_.IsWritable("/data/radio/logs"));
    EXPECT_FALSE(files_.IsWritable("/vendor/etc/a.txt"));
    EXPECT_FALSE(files_.IsWritable("/data/missing/a.txt"));
    EXPECT_TRUE(files_.IsDirectory("/data/radio"));
    EXPECT_TRUE(files_.IsDirectory("/"));
    EXPECT_FALSE(files_.IsDirectory("/data/radio/a.txt"));
}

TEST_F(ModelFileSystemTest, OpenCreatesWithItsModeAndKeepsWhatIsThere) {
    ModelFileSystem::File& created = files_.Open("/data/radio/a.txt", kFileMode);
    EXPECT_EQ(created.mode, kFileMode);
    EXPECT_EQ(created.content, "");
    created.content = "first ";

    // Opening again appends to the same file: its bytes and mode stay.
    files_.Open("/data/radio/a.txt", kOtherMode).content += "second";
    const ModelFileSystem::File* file = files_.Find("/data/radio/a.txt");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->content, "first second");
    EXPECT_EQ(file->mode, kFileMode);
    EXPECT_EQ(files_.FindMutable("/data/radio/a.txt"), file);
    EXPECT_EQ(files_.Find("/data/radio/b.txt"), nullptr);
}

TEST_F(ModelFileSystemTest, RenameReplacesAnExistingTarget) {
    files_.Open("/data/radio/new.txt", kFileMode).content = "new";
    files_.Open("/data/radio/old.txt", kOtherMode).content = "old and longer";

    files_.Rename("/data/radio/new.txt", "/data/radio/old.txt");
    EXPECT_EQ(files_.Find("/data/radio/new.txt"), nullptr);
    const ModelFileSystem::File* file = files_.Find("/data/radio/old.txt");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->content, "new");
    EXPECT_EQ(file->mode, kFileMode);
}

TEST_F(ModelFileSystemTest, RenameOfAMissingFileLeavesTheTarget) {
    files_.Open("/data/radio/old.txt", kOtherMode).content = "old";
    files_.Rename("/data/radio/missing.txt", "/data/radio/old.txt");
    const ModelFileSystem::File* file = files_.Find("/data/radio/old.txt");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->content, "old");
}

TEST_F(ModelFileSystemTest, RemoveAndListByPrefix) {
    files_.Open("/data/radio/logs2/b.txt", kFileMode);
    files_.Open("/data/radio/logs2/a.txt", kFileMode);
    files_.Open("/data/radio/c.txt", kFileMode);
    EXPECT_THAT(files_.FilesUnder("/data/radio/logs2/"),
                ElementsAre("/data/radio/logs2/a.txt", "/data/radio/logs2/b.txt"));

    files_.Remove("/data/radio/logs2/a.txt");
    files_.Remove("/data/radio/missing.txt");
    EXPECT_THAT(files_.FilesUnder("/data/radio/"),
                ElementsAre("/data/radio/c.txt", "/data/radio/logs2/b.txt"));
}

TEST_F(ModelFileSystemTest, ATreeTurnsReadOnlyAndBack) {
    files_.SetReadOnly("/data/radio/logs2", true);
    EXPECT_FALSE(files_.IsWritable("/data/radio/logs2/a.txt"));
    EXPECT_TRUE(files_.IsWritable("/data/radio/a.txt"));
    files_.SetReadOnly("/data/radio/logs2", false);
    EXPECT_TRUE(files_.IsWritable("/data/radio/logs2/a.txt"));
    // A tree read-only from the start stays so until it is turned back.
    EXPECT_FALSE(files_.IsWritable("/data/radio/logs/a.txt"));
}

// A tmpfs whose size limit moved down to the pages it uses: bytes still land in the rest of a
// file's last page, and in the pages that removed files gave back.
TEST_F(ModelFileSystemTest, AFullTreeTakesOnlyWhatFitsItsPages) {
    constexpr size_t kPage = ModelFileSystem::kPage;
    files_.Open("/data/radio/a.txt", kFileMode).content = std::string(kPage + 100, 'a');
    files_.Open("/data/radio/b.txt", kFileMode).content = std::string(2 * kPage, 'b');
    files_.Open("/vendor/etc/c.txt", kFileMode);
    files_.AddMount("/data/radio/logs2");
    files_.Open("/data/radio/logs2/d.txt", kFileMode).content = std::string(kPage, 'd');
    files_.SetFull("/data");
    EXPECT_TRUE(files_.IsFull("/data"));

    EXPECT_EQ(files_.Room("/data/radio/a.txt", 10000), kPage - 100);
    EXPECT_EQ(files_.Room("/data/radio/a.txt", 50), 50u);
    EXPECT_EQ(files_.Room("/data/radio/b.txt", 1), 0u);
    EXPECT_EQ(files_.Room("/data/radio/new.txt", 1), 0u);
    EXPECT_EQ(files_.Room("/data/radio/new.txt", 0), 0u);
    EXPECT_EQ(files_.Room("/vendor/etc/c.txt", 10000), 10000u);
    // A tree mounted apart neither fills up nor frees pages with /data.
    EXPECT_EQ(files_.Room("/data/radio/logs2/d.txt", 10000), 10000u);
    files_.Remove("/data/radio/logs2/d.txt");
    EXPECT_EQ(files_.Room("/data/radio/new.txt", 1), 0u);

    // b.txt's two pages are free again; what a write takes is gone.
    files_.Remove("/data/radio/b.txt");
    EXPECT_EQ(files_.Room("/data/radio/new.txt", 3 * kPage), 2 * kPage);
    files_.Open("/data/radio/new.txt", kFileMode).content = std::string(kPage + 1, 'n');
    EXPECT_EQ(files_.Room("/data/radio/a.txt", 10000), kPage - 100);
    EXPECT_EQ(files_.Room("/data/radio/other.txt", 1), 0u);

    // Full with pages to spare: they go before the disk is full.
    files_.SetFull("/data", 1);
    EXPECT_EQ(files_.Room("/data/radio/other.txt", 2 * kPage), kPage);

    files_.SetFull(std::nullopt);
    EXPECT_FALSE(files_.IsFull("/data"));
    EXPECT_EQ(files_.Room("/data/radio/b.txt", 10000), 10000u);
}

}  // namespace
}  // namespace tarvo_emu
