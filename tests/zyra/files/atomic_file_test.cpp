// Replacing files: through symbolic links, keeping the mode, refusing what is not a regular
// file, and never leaving a temporary file or a half-written target behind.
#include "files/atomic_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace fs = std::filesystem;
using Zyra::rt::WriteFileReplacing;

namespace {

class AtomicFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("zyra_atomic_" + std::to_string(::getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    oldMask_ = ::umask(022);
  }
  void TearDown() override {
    ::umask(oldMask_);
    fs::remove_all(dir_);
  }
  std::string Path(const char* name) const { return (dir_ / name).string(); }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  static void Write(const std::string& path, const char* text, mode_t mode) {
    std::ofstream(path, std::ios::binary) << text;
    ::chmod(path.c_str(), mode);
  }
  static mode_t Mode(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
  }
  size_t Entries() const {
    return static_cast<size_t>(
        std::distance(fs::directory_iterator(dir_), fs::directory_iterator{}));
  }
  fs::path dir_;
  mode_t oldMask_ = 0;
};

TEST_F(AtomicFileTest, ReplacesTheFileALinkNamesAndKeepsItsMode) {
  Write(Path("kept.txt"), "old", 0640);
  fs::create_symlink("kept.txt", Path("link"));       // relative, beside its target
  fs::create_symlink(Path("link"), Path("chain"));    // a link to a link
  fs::create_symlink("later.txt", Path("dangling"));  // names a file that does not exist yet
  const struct {
    const char* write;   // the path given
    const char* target;  // the file that must hold the text
    mode_t mode;
  } cases[] = {
      {"kept.txt", "kept.txt", 0640},   {"link", "kept.txt", 0640}, {"chain", "kept.txt", 0640},
      {"dangling", "later.txt", 0644},  // a new file: 0666 less the umask
      {"fresh.txt", "fresh.txt", 0644},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.write);
    const std::string text = std::string("written through ") + c.write;
    ASSERT_TRUE(WriteFileReplacing(Path(c.write), text).Succeeded());
    EXPECT_EQ(Read(Path(c.target)), text);
    EXPECT_EQ(Mode(Path(c.target)), c.mode);
  }
  for (const char* link : {"link", "chain", "dangling"}) {
    EXPECT_TRUE(fs::is_symlink(Path(link))) << link << " must stay a link";
  }
  EXPECT_EQ(Entries(), 6u) << "no temporary file is left";
}

TEST_F(AtomicFileTest, RefusesWhatIsNotARegularFileAndChangesNothing) {
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  fs::create_directory(Path("folder"));
  fs::create_symlink(Path("pipe"), Path("to_pipe"));
  fs::create_symlink("loop_b", Path("loop_a"));
  fs::create_symlink("loop_a", Path("loop_b"));
  const struct {
    std::string path;
    std::string why;
  } cases[] = {
      {Path("pipe"), "cannot write: it is a FIFO, not a regular file"},
      {Path("to_pipe"), "cannot write: it is a FIFO, not a regular file"},
      {Path("folder"), "cannot write: it is a folder, not a regular file"},
      {"/dev/null", "cannot write: it is a character device, not a regular file"},
      {Path("loop_a"), "cannot write: too many levels of symbolic links"},
      {Path("no/such/folder/x"), "cannot write: No such file or directory"},
  };
  const size_t before = Entries();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    Zyra::CStatus status = WriteFileReplacing(c.path, "text");
    EXPECT_FALSE(status.Succeeded());
    EXPECT_EQ(status.GetMessage().GetAsciiString(), c.path + ": " + c.why);
  }
  EXPECT_TRUE(fs::is_fifo(Path("pipe")));
  EXPECT_EQ(Entries(), before);
}

// A file written in pieces replaces its target only on Commit: one abandoned half way (the
// writer of its text failed) leaves the old content and no temporary file.
TEST_F(AtomicFileTest, AWriteInPiecesReplacesTheTargetOnlyOnCommit) {
  Write(Path("scene.zyra"), "old", 0600);
  const std::string piece(3 << 20, 'x');  // several pieces past the write-back step
  for (bool commit : {false, true}) {
    SCOPED_TRACE(commit);
    {
      Zyra::rt::ReplacingFile file(Path("scene.zyra"));
      ASSERT_TRUE(file.Open().Succeeded());
      for (int i = 0; i < 4; ++i) ASSERT_TRUE(file.Write(piece));
      if (commit) {
        ASSERT_TRUE(file.Commit().Succeeded());
      }
    }
    EXPECT_EQ(Read(Path("scene.zyra")).size(), commit ? 4 * piece.size() : 3u);
    EXPECT_EQ(Mode(Path("scene.zyra")), 0600);
    EXPECT_EQ(Entries(), 1u);
  }
}

// Two writers of one file at once (two processes saving into one folder) each get their own
// temporary file: neither mixes its bytes into the other's, and the last commit wins whole.
TEST_F(AtomicFileTest, WritersOfOneFileAtOnceUseTheirOwnTemporaryFiles) {
  Zyra::rt::ReplacingFile first(Path("scene.zyra")), second(Path("scene.zyra"));
  ASSERT_TRUE(first.Open().Succeeded());
  ASSERT_TRUE(second.Open().Succeeded());
  EXPECT_EQ(Entries(), 2u);
  ASSERT_TRUE(first.Write("first "));
  ASSERT_TRUE(second.Write("second "));
  ASSERT_TRUE(first.Write("save"));
  ASSERT_TRUE(second.Write("save"));
  ASSERT_TRUE(first.Commit().Succeeded());
  EXPECT_EQ(Read(Path("scene.zyra")), "first save");
  ASSERT_TRUE(second.Commit().Succeeded());
  EXPECT_EQ(Read(Path("scene.zyra")), "second save");
  EXPECT_EQ(Entries(), 1u);
}

}  // namespace
