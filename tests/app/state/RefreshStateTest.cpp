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

// A folder in memory when the system has one: renames there are as atomic as on a disk, while
// 4,000 flushes to a disk would take seconds.
class RefreshStateTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    std::string pattern = "/dev/shm/brimlog-test-XXXXXX";
    if (fs::is_directory("/dev/shm") && ::mkdtemp(pattern.data())) folder_ = pattern;
  }
  void TearDown() override {
    if (!folder_.empty()) fs::remove_all(folder_);
    TempDirTest::TearDown();
  }
  const fs::path& folder() const { return folder_.empty() ? dir() : folder_; }

 private:
  fs::path folder_;
};

TEST_F(RefreshStateTest, TwoWritersAtOnceNeverLeaveATornOrMissingFile) {
  constexpr int kSaves = 1000;
  const fs::path path = RefreshState::pathIn(folder());
  const Date start = *parseISO8601("2026-11-20T12:00:00Z");
  std::array<RefreshState, 2> states;
  states[0][ProviderID::claude].record(ProviderStatus::ok, start);
  states[1][ProviderID::codex].record(ProviderStatus::unreachable, start + Seconds{60});
  states[1][ProviderID::grok].record(ProviderStatus::ok, start);
  states[0].save(path);

  std::array<pid_t, 2> writers{};
  for (size_t i = 0; i < writers.size(); ++i) {
    writers[i] = ::fork();
    ASSERT_GE(writers[i], 0);
    if (writers[i] == 0) {
      try {
        for (int n = 0; n < kSaves; ++n) states[i].save(path);
      } catch (...) {
        ::_exit(1);
      }
      ::_exit(0);
    }
  }

  int reads = 0, running = 2, torn = 0, missing = 0;
  std::array<int, 2> statuses{};
  std::array<bool, 2> ended{};
  while (running > 0) {
    for (size_t i = 0; i < writers.size(); ++i) {
      if (!ended[i] && ::waitpid(writers[i], &statuses[i], WNOHANG) == writers[i]) {
        ended[i] = true;
        --running;
      }
    }
    ++reads;
    try {
      const RefreshState read = RefreshState::fromJson(Json::parse(WholeFile::read(path).bytes));
      if (read != states[0] && read != states[1]) ++torn;
    } catch (const fs::filesystem_error&) {
      ++missing;
    } catch (const Json::exception&) {
      ++torn;
    }
  }
  for (int status : statuses) {
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a writer failed: " << status;
  }
  EXPECT_EQ(torn, 0) << "of " << reads << " reads";
  EXPECT_EQ(missing, 0) << "of " << reads << " reads";
  std::vector<std::string> left;
  for (const auto& entry : fs::directory_iterator(folder())) {
    left.push_back(entry.path().filename().string());
  }
  EXPECT_EQ(left, std::vector<std::string>{path.filename().string()});
}

}  // namespace
}  // namespace brimlog
