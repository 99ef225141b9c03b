// Two processes saving the refresh state at once, as a sync beside the daemon does.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "platform/WholeFile.hpp"
#include "state/RefreshState.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

TEST(RefreshStateTest, TwoWritersAtOnceNeverLeaveATornOrMissingFile) {
  // In memory when the system has it: renames there are as atomic as on a disk, while 4,000
  // flushes to a disk take seconds.
  std::string folder =
      (fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path()) /
      "brimlog-test-XXXXXX";
  ASSERT_TRUE(::mkdtemp(folder.data()));
  const fs::path path = RefreshState::pathIn(folder);
  const Date start = *parseISO8601("2026-11-20T12:00:00Z");
  std::array<RefreshState, 2> states;
  states[0][ProviderID::claude].record(ProviderStatus::ok, start);
  states[1][ProviderID::codex].record(ProviderStatus::unreachable, start);
  states[1][ProviderID::grok].record(ProviderStatus::ok, start);
  states[0].save(path);

  std::array<pid_t, 2> writers{};
  for (size_t i = 0; i < writers.size(); ++i) {
    writers[i] = ::fork();
    ASSERT_GE(writers[i], 0);
    if (writers[i] == 0) {
      try {
        for (int n = 0; n < 1000; ++n) states[i].save(path);
      } catch (...) {
        ::_exit(1);
      }
      ::_exit(0);
    }
  }

  int reads = 0, torn = 0, missing = 0;
  std::array<int, 2> statuses{};
  std::array<bool, 2> ended{};
  while (!ended[0] || !ended[1]) {
    for (size_t i = 0; i < writers.size(); ++i) {
      ended[i] = ended[i] || ::waitpid(writers[i], &statuses[i], WNOHANG) == writers[i];
    }
    ++reads;
    try {
      const RefreshState read = RefreshState::fromJson(Json::parse(WholeFile::read(path).bytes));
      torn += read != states[0] && read != states[1];
    } catch (const fs::filesystem_error&) {
      ++missing;
    } catch (const Json::exception&) {
      ++torn;
    }
  }
  for (int status : statuses) EXPECT_EQ(status, 0) << "a writer failed";
  EXPECT_EQ(torn, 0) << "of " << reads << " reads";
  EXPECT_EQ(missing, 0) << "of " << reads << " reads";
  EXPECT_EQ(testing::fileNames(folder), path.filename().string() + " ");
  fs::remove_all(folder);
}

}  // namespace
}  // namespace brimlog
