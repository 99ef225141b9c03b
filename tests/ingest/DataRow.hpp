#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "ingest/LineBatch.hpp"
#include "support/TempDir.hpp"

namespace brimlog::testing {

/// One row of a tab-separated table under tests/data/: its name (the first field) and the fields
/// after it.
struct DataRow {
  std::string name;
  std::vector<std::string> fields;

  int64_t integer(size_t index) const { return std::stoll(fields.at(index)); }
};

/// The text of tests/data/<relative>; the test fails when there is none.
inline std::string dataText(std::string_view relative) {
  const auto path = std::filesystem::path(BRIMLOG_SOURCE_DIR) / "tests" / "data" / relative;
  std::string text = readFile(path);
  EXPECT_FALSE(text.empty()) << "no data in " << path;
  return text;
}

/// The rows of tests/data/<relative>. Blank lines and lines starting with "#" are notes; a field
/// may be empty, so a row can carry an empty line of a log.
inline std::vector<DataRow> namedRows(std::string_view relative) {
  std::istringstream text(dataText(relative));
  std::vector<DataRow> rows;
  for (std::string line; std::getline(text, line);) {
    if (line.empty() || line.front() == '#') continue;
    // Every field ends with a tab, so a last field that is empty is read too.
    std::istringstream fields(line + '\t');
    DataRow& row = rows.emplace_back();
    std::getline(fields, row.name, '\t');
    for (std::string field; std::getline(fields, field, '\t');) row.fields.push_back(field);
  }
  return rows;
}

/// A copy of a line followed by padding, as the lines of a read lie in memory.
class PaddedCopy {
 public:
  explicit PaddedCopy(std::string_view text)
      : storage_(std::string(text) + std::string(LineBatch::kPadding, '"')), size_(text.size()) {}
  operator PaddedLine() const { return {{storage_.data(), size_}}; }  // NOLINT

 private:
  std::string storage_;
  size_t size_;
};

}  // namespace brimlog::testing
