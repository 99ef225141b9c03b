#include "support/TempDir.hpp"

#include <stdlib.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>

namespace brimlog::testing {

void TempDirTest::SetUp() {
  std::string pattern = (std::filesystem::temp_directory_path() / "brimlog-test-XXXXXX").string();
  ASSERT_NE(::mkdtemp(pattern.data()), nullptr) << "mkdtemp failed";
  dir_ = pattern;
  // The programs a test starts read the config file here, which is missing unless the test
  // writes it: never the user's, which may send their ledger somewhere.
  ::setenv("BRIMLOG_CONFIG", (dir_ / "brimlog.conf").c_str(), 1);
}

void TempDirTest::TearDown() {
  if (dir_.empty()) return;
  if (HasFailure()) {
    std::cerr << "Kept the test's temporary folder: " << dir_ << '\n';
    return;
  }
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

std::filesystem::path TempDirTest::write(const std::filesystem::path& relative,
                                         std::string_view contents) {
  const auto path = dir_ / relative;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  return path;
}

void TempDirTest::append(const std::filesystem::path& relative, std::string_view contents) {
  std::ofstream out(dir_ / relative, std::ios::binary | std::ios::app);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
}

std::optional<std::filesystem::path> realFixtures() {
  std::filesystem::path path;
  if (const char* override = std::getenv("BRIMLOG_REAL_FIXTURES")) {
    path = override;
  } else {
    path = std::filesystem::path(BRIMLOG_SOURCE_DIR) / ".." / "shared" / "fixtures" / "real";
  }
  std::error_code error;
  if (!std::filesystem::is_directory(path, error)) return std::nullopt;
  return std::filesystem::canonical(path, error);
}

std::filesystem::path dataPath(const std::filesystem::path& relative) {
  return std::filesystem::path(BRIMLOG_SOURCE_DIR) / "tests" / "data" / relative;
}

std::vector<std::vector<std::string>> dataRows(const std::filesystem::path& relative) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(readFile(dataPath(relative)));
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line.starts_with('#')) continue;
    // Every field ends with a tab, so an empty last field is read too.
    std::istringstream fields(line + '\t');
    auto& row = rows.emplace_back();
    for (std::string field; std::getline(fields, field, '\t');) row.push_back(field);
  }
  EXPECT_FALSE(rows.empty()) << dataPath(relative) << " has no rows";
  return rows;
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string fileNames(const std::filesystem::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.insert(entry.path().filename().string());
  }
  std::string joined;
  for (const std::string& name : names) joined += name + " ";
  return joined;
}

}  // namespace brimlog::testing
