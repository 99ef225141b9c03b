#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "platform/AtomicFile.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;
using testing::fileNames;

using AtomicFileTest = testing::TempDirTest;

// What `replace` throws, or nothing.
std::optional<fs::filesystem_error> failure(const fs::path& path) {
  try {
    AtomicFile::replace(path, "new");
  } catch (const fs::filesystem_error& error) {
    return error;
  }
  return std::nullopt;
}

TEST_F(AtomicFileTest, ReplacesWholeForTheUserAloneOrFailsNamingThePathAndLeavingTheOldFile) {
  const fs::path path = dir() / "state.json";
  AtomicFile::replace(path, "a longer first text\n");
  AtomicFile::replace(path, "short");
  EXPECT_EQ(testing::readFile(path), "short");
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600);
  EXPECT_EQ(fileNames(dir()), "state.json ");

  // A failure names the path and leaves the old file and no temporary file.
  const std::optional<fs::filesystem_error> missing = failure(dir() / "missing" / "state.json");
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->path1(), dir() / "missing" / "state.json");
  EXPECT_EQ(missing->code(), std::errc::no_such_file_or_directory);

  // A folder standing where the file should be is not replaced.
  write("blocked/state.json/kept", "x");
  ASSERT_TRUE(failure(dir() / "blocked" / "state.json"));
  EXPECT_EQ(fileNames(dir() / "blocked") + fileNames(dir() / "blocked" / "state.json"),
            "state.json kept ");

  if (::geteuid() != 0) {  // root writes into any folder
    write("locked/state.json", "old");
    ::chmod((dir() / "locked").c_str(), 0500);
    const std::optional<fs::filesystem_error> locked = failure(dir() / "locked" / "state.json");
    ::chmod((dir() / "locked").c_str(), 0700);
    ASSERT_TRUE(locked);
    EXPECT_EQ(locked->code(), std::errc::permission_denied);
    EXPECT_EQ(testing::readFile(dir() / "locked" / "state.json"), "old");
    EXPECT_EQ(fileNames(dir() / "locked"), "state.json ");
  }
}

// Two writers replacing one file at once, as a sync beside the daemon saving the refresh state
// does: every read finds one writer's bytes whole, and no temporary file stays behind. The
// temporary names are unique per call, so two threads stand for the two processes. (Unflushed, as
// 2,000 flushes to a disk take seconds; the names and the rename are the same either way.)
TEST_F(AtomicFileTest, TwoWritersAtOnceNeverLeaveATornOrMissingFile) {
  const fs::path path = dir() / "state.json";
  const std::string texts[] = {std::string(6000, 'a'), std::string(4000, 'b')};
  AtomicFile::replace(path, texts[0]);
  std::atomic<int> running = 2, failed = 0;
  std::vector<std::thread> writers;
  for (const std::string& text : texts) {
    writers.emplace_back([&] {
      try {
        for (int n = 0; n < 1000; ++n) {
          AtomicFile::replace(path, text, AtomicFile::Durability::visible);
        }
      } catch (const fs::filesystem_error&) {
        ++failed;
      }
      --running;
    });
  }
  int reads = 0, torn = 0;
  for (; running > 0; ++reads) {
    const std::string read = testing::readFile(path);  // empty when missing
    torn += read != texts[0] && read != texts[1];
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(torn, 0) << "of " << reads << " reads";
  EXPECT_EQ(fileNames(dir()), "state.json ");
}

}  // namespace
}  // namespace brimlog
