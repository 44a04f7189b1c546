#include "utils/CommandUtil.h"
#include "utils/TempDir.h"

#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class CommandUtilFilesTest : public testing::Test {
  protected:
    const std::shared_ptr<CommandUtil> util_ = CommandUtil::GetInstance();
    const TempDir dir_;
};

TEST_F(CommandUtilFilesTest, IsOneInstance) {
    EXPECT_NE(util_, nullptr);
    EXPECT_EQ(CommandUtil::GetInstance(), util_);
}

TEST_F(CommandUtilFilesTest, ExistsIsTrueForFilesDirectoriesAndDanglingLinks) {
    dir_.Write("file", "");
    fs::create_symlink(dir_ / "nowhere", dir_ / "dangling");
    EXPECT_TRUE(util_->Exists(dir_ / "file"));
    EXPECT_TRUE(util_->Exists(dir_.path()));
    EXPECT_TRUE(util_->Exists(dir_ / "dangling"));
    EXPECT_FALSE(util_->Exists(dir_ / "nowhere"));
    EXPECT_FALSE(util_->Exists(""));
}

TEST_F(CommandUtilFilesTest, CreateMakesAnEmptyFileInADirectoryThatExists) {
    util_->Create(dir_ / "b.flag");
    EXPECT_TRUE(fs::is_regular_file(dir_ / "b.flag"));
    EXPECT_EQ(dir_.Read("b.flag"), "");
}

TEST_F(CommandUtilFilesTest, CreateEmptiesAFileThatExists) {
    dir_.Write("b.flag", "text");
    util_->Create(dir_ / "b.flag");
    EXPECT_EQ(dir_.Read("b.flag"), "");
}

TEST_F(CommandUtilFilesTest, CreateMakesAMissingParentAsAPlainFileAndNothingInIt) {
    util_->Create(dir_ / "a/b.flag");
    EXPECT_TRUE(fs::is_regular_file(dir_ / "a"));
    EXPECT_EQ(util_->Ls(dir_.path()), Names{"a"});
}

TEST_F(CommandUtilFilesTest, CreateMakesOnlyTheFirstMissingParent) {
    util_->Create(dir_ / "a/b/c/d.flag");
    EXPECT_TRUE(fs::is_regular_file(dir_ / "a"));
    EXPECT_EQ(util_->Ls(dir_.path()), Names{"a"});
}

TEST_F(CommandUtilFilesTest, CreateLeavesAParentThatIsAFileAlone) {
    dir_.Write("a", "text");
    util_->Create(dir_ / "a/b.flag");
    EXPECT_EQ(dir_.Read("a"), "text");
}

TEST_F(CommandUtilFilesTest, CreateTakesAPathWithoutADirectoryFromTheCurrentOne) {
    const fs::path before = fs::current_path();
    fs::current_path(dir_.path());
    util_->Create("here.flag");
    fs::current_path(before);
    EXPECT_TRUE(fs::is_regular_file(dir_ / "here.flag"));
}

TEST_F(CommandUtilFilesTest, ClearContentEmptiesAFile) {
    dir_.Write("file", "text");
    util_->ClearContent(dir_ / "file");
    EXPECT_TRUE(fs::is_regular_file(dir_ / "file"));
    EXPECT_EQ(dir_.Read("file"), "");
}

TEST_F(CommandUtilFilesTest, ClearContentMakesAMissingFile) {
    util_->ClearContent(dir_ / "file");
    EXPECT_TRUE(fs::is_regular_file(dir_ / "file"));
    EXPECT_EQ(dir_.Read("file"), "");
}

TEST_F(CommandUtilFilesTest, ClearContentOfWhatDoesNotOpenDoesNothing) {
    fs::create_directory(dir_ / "sub");
    util_->ClearContent(dir_ / "sub");
    util_->ClearContent(dir_ / "missing/file");
    EXPECT_EQ(util_->Ls(dir_.path()), Names{"sub"});
    EXPECT_TRUE(fs::is_directory(dir_ / "sub"));
}

TEST_F(CommandUtilFilesTest, RmRemovesAFile) {
    dir_.Write("file", "text");
    util_->Rm(dir_ / "file");
    EXPECT_EQ(util_->Ls(dir_.path()), Names{});
}

TEST_F(CommandUtilFilesTest, RmOfAMissingPathDoesNothing) {
    dir_.Write("file", "text");
    util_->Rm(dir_ / "missing");
    EXPECT_EQ(util_->Ls(dir_.path()), Names{"file"});
}

TEST_F(CommandUtilFilesTest, RmOfALinkToADirectoryRemovesTheLinkOnly) {
    fs::create_directory(dir_ / "sub");
    dir_.Write("sub/file", "text");
    fs::create_directory_symlink(dir_ / "sub", dir_ / "link");
    util_->Rm(dir_ / "link");
    EXPECT_EQ(util_->Ls(dir_.path()), Names{"sub"});
    EXPECT_EQ(dir_.Read("sub/file"), "text");
}

TEST_F(CommandUtilFilesTest, RmRemovesADirectoryWithAllItHolds) {
    fs::create_directories(dir_ / "sub/deep/deeper");
    dir_.Write("sub/file", "text");
    dir_.Write("sub/deep/.hidden", "text");
    dir_.Write("kept", "text");
    fs::create_symlink(dir_ / "kept", dir_ / "sub/deep/link");
    util_->Rm(dir_ / "sub");
    EXPECT_EQ(util_->Ls(dir_.path()), Names{"kept"});
}

TEST_F(CommandUtilFilesTest, RmLeavesAFifoAndItsDirectory) {
    fs::create_directory(dir_ / "sub");
    dir_.Write("sub/file", "text");
    ASSERT_EQ(mkfifo((dir_ / "sub/fifo").c_str(), 0600), 0);
    util_->Rm(dir_ / "sub/fifo");
    util_->Rm(dir_ / "sub");
    EXPECT_EQ(util_->Ls(dir_ / "sub"), Names{"fifo"});
}

TEST_F(CommandUtilFilesTest, LsOfADirectoryIsSorted) {
    for (const char* name : {"b", "a10", ".hidden", "a2", "B"}) {
        dir_.Write(name, "");
    }
    EXPECT_EQ(util_->Ls(dir_.path()), (Names{".hidden", "B", "a10", "a2", "b"}));
}

TEST_F(CommandUtilFilesTest, LsOfAFileIsItsLastPart) {
    dir_.Write("file", "");
    EXPECT_EQ(util_->Ls(dir_ / "file"), Names{"file"});

    const fs::path before = fs::current_path();
    fs::current_path(dir_.path());
    EXPECT_EQ(util_->Ls("file"), Names{"file"});
    fs::current_path(before);
}

TEST_F(CommandUtilFilesTest, LsDoesNotFollowALink) {
    fs::create_directory(dir_ / "sub");
    dir_.Write("sub/file", "");
    fs::create_directory_symlink(dir_ / "sub", dir_ / "link");
    EXPECT_EQ(util_->Ls(dir_ / "link"), Names{"link"});
}

TEST_F(CommandUtilFilesTest, LsOfAMissingPathIsEmpty) {
    EXPECT_EQ(util_->Ls(dir_ / "missing"), Names{});
}

TEST_F(CommandUtilFilesTest, LsOfAnEmptyDirectoryIsEmpty) {
    EXPECT_EQ(util_->Ls(dir_.path()), Names{});
}

} // namespace
