#include "store/SQLiteDatabase.hpp"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <climits>
#include <cstring>

namespace brimlog {

namespace {

// What a user can do about a failure, by SQLite's primary result code.
std::string_view advice(int32_t code) {
  switch (code & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "Another program is writing to it (a second brimlog sync?); try again when it is "
             "done.";
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return "The file or its folder cannot be written; check their permissions.";
    case SQLITE_CANTOPEN:
      return "Check that its folder exists and that you may read and write there.";
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return UsageStoreError::kRebuild;
    case SQLITE_FULL:
      return "The disk is full; free some space and try again.";
    case SQLITE_IOERR:
      return "The disk reported an error; check the file system.";
    default:
      return {};
  }
}

std::string sentence(int32_t code, const std::string& message, const std::string& file,
                     std::string_view doing) {
  if (file.empty()) return fmt::format("{} (SQLite result code {})", message, code);
  if (doing.empty()) return message;  // refused: the reason says it all
  const std::string_view hint = advice(code);
  return fmt::format("{}: cannot {}: {}.{}{}", file, doing, message, hint.empty() ? "" : " ", hint);
}

}  // namespace

UsageStoreError::UsageStoreError(int32_t code, std::string message, std::string file,
                                 std::string doing)
    : std::runtime_error(sentence(code, message, file, doing)),
      code_(code),
      message_(std::move(message)),
      file_(std::move(file)) {}

UsageStoreError UsageStoreError::refused(const std::string& file, std::string reason) {
  return UsageStoreError(SQLITE_NOTADB, std::move(reason), file, {});
}

UsageStoreError UsageStoreError::damaged(const std::string& file,
                                         const std::vector<std::string>& problems) {
  constexpr size_t kQuoted = 3;
  std::string found;
  for (size_t i = 0; i < std::min(problems.size(), kQuoted); ++i) {
    found += (i > 0 ? "; " : "") + problems[i];
  }
  if (problems.size() > kQuoted) found += fmt::format("; and {} more", problems.size() - kQuoted);
  return UsageStoreError(SQLITE_CORRUPT,
                         fmt::format("the database {} is damaged, so the totals read from it may "
                                     "be wrong or missing (SQLite's check finds: {}). {}",
                                     file, found, kRebuild),
                         file, {});
}

UsageStoreError UsageStoreError::in(const std::string& file, std::string_view doing) const {
  return UsageStoreError(code_, message_, file, std::string(doing));
}

int64_t Row::integer(int column) const { return sqlite3_column_int64(statement_, column); }

double Row::real(int column) const { return sqlite3_column_double(statement_, column); }

bool Row::isNull(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

std::string_view Row::text(int column) const {
  const auto* text = sqlite3_column_text(statement_, column);
  if (text == nullptr) return {};
  return {reinterpret_cast<const char*>(text),
          static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
}

std::string_view Row::blob(int column) const {
  const void* bytes = sqlite3_column_blob(statement_, column);
  if (bytes == nullptr) return {};
  return {static_cast<const char*>(bytes),
          static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
}

SQLiteDatabase::SQLiteDatabase(const std::string& path, int flags) {
  // SQLite counts every allocation it makes under a global mutex unless told not to; nothing
  // here reads those counts, and a large ingest makes millions of allocations. The setting must
  // come before the library initialises itself, which the first open does.
  static const int memoryStatusOff = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  (void)memoryStatusOff;
  sqlite3* handle = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
  if (handle == nullptr) throw UsageStoreError::sqlite(result, "open failed");
  if (result != SQLITE_OK) {
    std::string message = sqlite3_errmsg(handle);
    sqlite3_close(handle);
    throw UsageStoreError::sqlite(result, std::move(message));
  }
  db_ = handle;
}

SQLiteDatabase::~SQLiteDatabase() {
  statements_.clear();  // every statement is finalized before the connection closes
  sqlite3_close(db_);
}

void SQLiteDatabase::Finalizer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

SQLiteDatabase::Use::~Use() {
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
}

void SQLiteDatabase::fail(int code) { throw UsageStoreError::sqlite(code, sqlite3_errmsg(db_)); }

void SQLiteDatabase::exec(std::string_view script) {
  const std::string text(script);
  const int result = sqlite3_exec(db_, text.c_str(), nullptr, nullptr, nullptr);
  if (result != SQLITE_OK) fail(result);
}

PreparedStatement SQLiteDatabase::prepared(std::string_view text) {
  const std::string key(text);
  if (const auto found = statements_.find(key); found != statements_.end()) {
    return PreparedStatement{found->second.get()};
  }
  sqlite3_stmt* statement = nullptr;
  const int result =
      sqlite3_prepare_v3(db_, key.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  if (result != SQLITE_OK) fail(result);
  if (statement == nullptr) fail(result);  // an empty text prepares to nothing
  statements_.emplace(key, Statement{statement});
  return PreparedStatement{statement};
}

SQLiteDatabase::Use SQLiteDatabase::begin(PreparedStatement prepared,
                                          std::initializer_list<Bind> binds) {
  sqlite3_stmt* statement = prepared.get();
  int index = 1;
  for (const Bind& bind : binds) {
    // Bind results are not checked: our statements have exactly the parameters we bind.
    if (const auto* text = std::get_if<std::string_view>(&bind)) {
      // Up to the first NUL, as a C string would be: the same key for the same visible text.
      const void* nul = std::memchr(text->data(), '\0', text->size());
      const size_t length =
          nul ? static_cast<size_t>(static_cast<const char*>(nul) - text->data()) : text->size();
      // Not copied: the bound text outlives the statement's use, which clears its bindings.
      sqlite3_bind_text(statement, index, text->data(), static_cast<int>(length), SQLITE_STATIC);
    } else if (const auto* integer = std::get_if<int64_t>(&bind)) {
      sqlite3_bind_int64(statement, index, *integer);
    } else if (const auto* real = std::get_if<double>(&bind)) {
      sqlite3_bind_double(statement, index, *real);
    } else if (const auto* blob = std::get_if<Blob>(&bind)) {
      sqlite3_bind_blob(statement, index, blob->bytes.data(), static_cast<int>(blob->bytes.size()),
                        SQLITE_STATIC);
    } else {
      sqlite3_bind_null(statement, index);
    }
    ++index;
  }
  return Use{statement};
}

bool SQLiteDatabase::step(sqlite3_stmt* statement) {
  const int result = sqlite3_step(statement);
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) return false;
  fail(result);
}

int64_t SQLiteDatabase::run(PreparedStatement statement, std::initializer_list<Bind> binds) {
  Use use = begin(statement, binds);
  step(use.statement);
  return sqlite3_changes64(db_);
}

void SQLiteDatabase::rollback() noexcept {
  sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
}

}  // namespace brimlog
