#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimlog::testing {

/// A fixture with a fresh temporary folder per test. The folder is removed when the test passes
/// and kept, with its path printed, when it fails, so the files can be looked at.
class TempDirTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  const std::filesystem::path& dir() const { return dir_; }

  /// Writes `contents` to `relative` under the folder, creating parent folders; returns the path.
  std::filesystem::path write(const std::filesystem::path& relative, std::string_view contents);

  /// Appends `contents` to a file under the folder.
  void append(const std::filesystem::path& relative, std::string_view contents);

 private:
  std::filesystem::path dir_;
};

/// The folder of real logs written by the tools themselves, when this checkout sits beside it
/// (`BRIMLOG_REAL_FIXTURES` may point elsewhere); nothing on a user's clone.
std::optional<std::filesystem::path> realFixtures();

/// The path of a data file of the tests, `relative` to tests/data/ in the source tree.
std::filesystem::path dataPath(const std::filesystem::path& relative);

/// The rows of a tab-separated data file under tests/data/, each split at its tabs (an empty
/// field, last ones included, is kept); empty lines and lines starting with "#" are left out. A
/// file without rows fails the test.
std::vector<std::vector<std::string>> dataRows(const std::filesystem::path& relative);

/// Reads a whole file.
std::string readFile(const std::filesystem::path& path);

/// The names in a folder, hidden ones included, sorted, each followed by a space.
std::string fileNames(const std::filesystem::path& folder);

}  // namespace brimlog::testing

/// Skips the current test when the real-log fixtures are absent.
#define BRIMLOG_REQUIRE_REAL_FIXTURES(var)                                             \
  const auto var##_found = ::brimlog::testing::realFixtures();                         \
  if (!var##_found) GTEST_SKIP() << "real log fixtures not found beside the checkout"; \
  const std::filesystem::path var = *var##_found
