#include "support/ExpectedFile.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "support/TempDir.hpp"

namespace brimlog::testing {
namespace {

std::vector<std::string_view> lines(std::string_view text) {
  std::vector<std::string_view> result;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    result.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return result;
}

// A line diff along a longest common subsequence; expected files are a few dozen lines long.
std::string lineDiff(std::string_view expected, std::string_view actual) {
  const auto a = lines(expected), b = lines(actual);
  std::vector<std::vector<size_t>> common(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = a.size(); i-- > 0;) {
    for (size_t j = b.size(); j-- > 0;) {
      common[i][j] =
          a[i] == b[j] ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
    }
  }
  std::string diff;
  size_t i = 0, j = 0;
  while (i < a.size() || j < b.size()) {
    if (i < a.size() && j < b.size() && a[i] == b[j]) {
      diff.append("  ").append(a[i++]).append("\n");
      ++j;
    } else if (i < a.size() && (j == b.size() || common[i + 1][j] >= common[i][j + 1])) {
      diff.append("- ").append(a[i++]).append("\n");
    } else {
      diff.append("+ ").append(b[j++]).append("\n");
    }
  }
  return diff;
}

}  // namespace

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
         << " (- expected, + actual; BRIMLOG_REGENERATE_EXPECTED=1 rewrites the file):\n"
         << lineDiff(expected, actual)
         << (expected.ends_with('\n') != actual.ends_with('\n') ? "(and in the final line feed)\n"
                                                                : "");
}

}  // namespace brimlog::testing
