#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <vector>

namespace brimlog::testing {

/// Reads and writes a database with the SQLite C API directly, not through the store, so tests
/// can check what the store really wrote, get in its way (hold a lock, damage a row) or make a
/// database of another shape (the file is created when missing).
class RawDatabase {
 public:
  explicit RawDatabase(const std::filesystem::path& path) {
    EXPECT_EQ(
        sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr),
        SQLITE_OK);
  }
  ~RawDatabase() { sqlite3_close(db_); }
  RawDatabase(const RawDatabase&) = delete;
  RawDatabase& operator=(const RawDatabase&) = delete;

  /// Every row of a query, its columns as text ("NULL" for NULL), joined with "|".
  std::vector<std::string> rows(const std::string& sql) {
    std::vector<std::string> result;
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr), SQLITE_OK) << sql;
    while (sqlite3_step(statement) == SQLITE_ROW) {
      std::string row;
      for (int i = 0; i < sqlite3_column_count(statement); ++i) {
        if (i > 0) row += '|';
        const auto* text = sqlite3_column_text(statement, i);
        row += text ? reinterpret_cast<const char*>(text) : "NULL";
      }
      result.push_back(row);
    }
    sqlite3_finalize(statement);
    return result;
  }

  int exec(const std::string& sql) {
    return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
  }

 private:
  sqlite3* db_ = nullptr;
};

}  // namespace brimlog::testing
