#pragma once

#include <cstdint>
#include <filesystem>
#include <iterator>
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

/// The rows of tests/data/<relative> (see `dataRows`), each with its first field as its name.
inline std::vector<DataRow> namedRows(std::string_view relative) {
  std::vector<DataRow> rows;
  for (std::vector<std::string>& fields : dataRows(relative)) {
    DataRow& row = rows.emplace_back();
    row.name = std::move(fields.at(0));
    row.fields.assign(std::make_move_iterator(fields.begin() + 1),
                      std::make_move_iterator(fields.end()));
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
