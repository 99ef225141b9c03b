#include "support/ExpectedFile.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempDir.hpp"

namespace brimlog::testing {
namespace {

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) result.push_back(line);
  return result;
}

}  // namespace

::testing::AssertionResult sameLines(const std::string& expected, const std::string& actual) {
  if (expected == actual) return ::testing::AssertionSuccess();
  // GoogleTest's own line diff, the one its EXPECT_EQ prints for multi-line text.
  return ::testing::AssertionFailure()
         << "- expected, + actual:\n"
         << ::testing::internal::edit_distance::CreateUnifiedDiff(lines(expected), lines(actual));
}

::testing::AssertionResult matchesExpectedFile(std::string_view name, std::string_view actual) {
  const std::filesystem::path path =
      std::filesystem::path(BRIMLOG_SOURCE_DIR) / "tests" / "expected" / name;
  const char* regenerate = std::getenv("BRIMLOG_REGENERATE_EXPECTED");
  if (regenerate && std::string_view(regenerate) == "1") {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(actual.data(), static_cast<std::streamsize>(actual.size()));
    out.close();
    if (!out) {
      return ::testing::AssertionFailure()
             << "cannot write " << path << ": " << std::strerror(errno);
    }
    std::cerr << "Regenerated " << path.string() << '\n';
    return ::testing::AssertionSuccess();
  }
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    return ::testing::AssertionFailure()
           << path << " is missing; BRIMLOG_REGENERATE_EXPECTED=1 writes it";
  }
  const std::string expected = readFile(path);
  if (expected == actual) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "the text differs from " << path
         << " (BRIMLOG_REGENERATE_EXPECTED=1 rewrites the file); "
         << sameLines(expected, std::string(actual)).message() << "\n"
         << (expected.ends_with('\n') != actual.ends_with('\n') ? "(and in the final line feed)\n"
                                                                : "");
}

}  // namespace brimlog::testing
