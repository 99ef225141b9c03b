#include "store/UsageStore.hpp"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <unordered_map>

#include "store/LedgerReader.hpp"
#include "store/LedgerWriter.hpp"
#include "store/PriceTable.hpp"
#include "store/StoreSQL.hpp"
#include "store/SummaryBuilder.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {
namespace {

// The tables of every schema this program has written.
bool isOurTable(std::string_view name) {
  for (const std::string_view ours :
       {"replies", "sessions", "usage", "day_usage", "day_sessions", "kept_days", "cursors",
        "limits", "limit_readings", "share_marks", "seen", "daily"}) {
    if (name == ours) return true;
  }
  return false;
}
constexpr std::string_view kSaveCursor =
    "INSERT OR REPLACE INTO cursors(path, json) VALUES(?1, ?2)";

}  // namespace

UsageStore::UsageStore(const std::filesystem::path& url, UsageStoreOptions options)
    : path_(url.string()) {
  const bool memory = url.filename() == ":memory:";
  // Two programs opening a new database at once meet while one of them sets it up (the journal
  // mode, the tables), a moment in which SQLite reports the file as locked without waiting; the
  // later one tries again, waiting longer each time, for as long as it would wait for a writer.
  const auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::duration<double>(std::clamp(options.busyTimeout, 0.0, 3600.0));
  for (auto pause = std::chrono::milliseconds(5);;
       pause = std::min(pause * 2, std::chrono::milliseconds(200))) {
    try {
      db_ = open(memory ? ":memory:" : path_, options);
      return;
    } catch (const UsageStoreError& error) {
      const int32_t code = error.code() & 0xff;
      const bool busy = code == SQLITE_BUSY || code == SQLITE_LOCKED;
      if (busy && std::chrono::steady_clock::now() + pause < deadline) {
        std::this_thread::sleep_for(pause);
        continue;
      }
      if (!error.file().empty()) throw;
      throw error.in(path_, "open the usage database");
    }
  }
}

std::unique_ptr<SQLiteDatabase> UsageStore::open(const std::string& path,
                                                 const UsageStoreOptions& options) const {
  const int mode =
      options.readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  // Every use of the connection holds `mutex_` (withDatabase), so SQLite's own locking of each
  // call would only repeat it: a report reads every column of tens of thousands of rows.
  auto db = std::make_unique<SQLiteDatabase>(path, mode | SQLITE_OPEN_NOMUTEX);
  // Another writer (a second sync) is waited for rather than failed at once.
  sqlite3_busy_timeout(db->handle(),
                       static_cast<int>(std::clamp(options.busyTimeout, 0.0, 3600.0) * 1000));

  // Look before writing anything: a file of another program, or of a newer Brimlog, is left
  // exactly as it was.
  int64_t applicationID = 0, version = 0, tables = 0, ours = 0;
  const auto readApplicationID = [&] {
    db->query("PRAGMA application_id", {}, [&](const Row& row) { applicationID = row.integer(0); });
  };
  try {
    readApplicationID();
  } catch (const UsageStoreError& error) {
    // In a folder that cannot be written, a read-only open finds no shared-memory file to
    // coordinate readers through; no one can write there, so reading the file as it is is safe.
    const int32_t code = error.code() & 0xff;
    if (!options.readOnly || (code != SQLITE_CANTOPEN && code != SQLITE_READONLY)) throw;
    // In a URI the characters that start a query or an escape must themselves be escaped.
    std::string uri = "file:";
    for (const char c : path) {
      if (c == '?' || c == '#' || c == '%') {
        uri += fmt::format("%{:02X}", static_cast<unsigned char>(c));
      } else {
        uri += c;
      }
    }
    db = std::make_unique<SQLiteDatabase>(
        uri + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX);
    readApplicationID();
  }
  // The id, the version and the tables are read again in one snapshot: another program setting
  // the file up at this moment must not be seen half done.
  db->exec("BEGIN");
  readApplicationID();
  db->query("PRAGMA user_version", {}, [&](const Row& row) { version = row.integer(0); });
  db->query("SELECT name FROM sqlite_schema WHERE type = 'table' AND name NOT LIKE 'sqlite_%'", {},
            [&](const Row& row) {
              ++tables;
              if (isOurTable(row.text(0))) ++ours;
            });
  db->exec("COMMIT");
  // A file without our id is ours only when it holds our tables and nothing else (a database
  // this program wrote before it set the id), or nothing at all.
  const bool mine = applicationID == applicationId ||
                    (applicationID == 0 && (tables == 0 || (tables == ours && version > 0)));
  if (!mine) throw UsageStoreError::refused(path_, path_ + " is not a Brimlog database");
  if (version > schemaVersion) {
    throw UsageStoreError::refused(
        path_, fmt::format("{} was written by a newer Brimlog (schema {}); this one reads up to "
                           "schema {}",
                           path_, version, schemaVersion));
  }
  if (options.readOnly) {
    if (version == 0) {
      throw UsageStoreError::refused(
          path_, fmt::format("{} holds no usage yet; run `brimlog sync` to read your logs into it",
                             path_));
    }
    // An older schema is brought up to date by the first program that may write to the file.
    if (version > 0 && version < schemaVersion) {
      throw UsageStoreError::refused(
          path_, fmt::format("{} was written by an older Brimlog (schema {}); run `brimlog sync` "
                             "once to bring it up to date",
                             path_, version));
    }
    return db;
  }

  // A new file gets 16 KiB pages: every reply is a `replies` row whose random key lands anywhere
  // in the table, and with pages four times the default its tree is a level shallower and a batch
  // dirties fewer pages; a first pass over a large home takes a tenth less time. The size can
  // only be chosen before the file turns to WAL; a file made earlier keeps its own.
  if (tables == 0 && version == 0) db->exec("PRAGMA page_size=16384");
  db->exec("PRAGMA journal_mode=WAL");
  // A cache that holds a few months of keys, so a large ingest is not spent re-reading pages;
  // in WAL mode NORMAL still commits atomically and loses at most the last transactions on a
  // power cut, and a batch is stored together with its cursors, so such a loss is only read again.
  db->exec("PRAGMA cache_size=-32768");
  db->exec("PRAGMA synchronous=NORMAL");
  if (version < schemaVersion || applicationID != applicationId) {
    db->transaction([&] {
      // Another program may have set the file up since it was looked at.
      db->query("PRAGMA user_version", {}, [&](const Row& row) { version = row.integer(0); });
      if (version == 1) {
        // Schema 1 kept day totals in the zone of each sync. What can be rebuilt is rebuilt:
        // every cursor goes, so the next pass reads every log again into the slot ledger; the
        // day totals are kept for the days whose logs are gone by then.
        db->exec("ALTER TABLE sessions RENAME TO sessions_v1");
        db->exec(sql::kSchema);
        db->exec(sql::kMigrateV1);
      } else if (version < schemaVersion) {
        // Schema 2 lacked the history of limit readings, schema 3 the marks of changed days:
        // the schema adds only what is missing.
        db->exec(sql::kSchema);
      }
      // Every day held so far counts as changed, for a shared ledger that has none of them yet.
      if (version > 0 && version < schemaVersion) db->exec(sql::kMarkAll);
      db->exec(fmt::format("PRAGMA user_version = {}", std::max<int64_t>(version, schemaVersion)));
      db->exec(fmt::format("PRAGMA application_id = {}", applicationId));
    });
  }
  return db;
}

UsageStore::~UsageStore() = default;

template <typename Body>
decltype(auto) UsageStore::withDatabase(std::string_view doing, Body&& body) {
  std::lock_guard lock(mutex_);
  try {
    if (!db_) throw UsageStoreError::sqlite(SQLITE_MISUSE, "closed");
    return body(*db_);
  } catch (const UsageStoreError& error) {
    if (!error.file().empty()) throw;
    throw error.in(path_, doing);
  }
}

int64_t UsageStore::ingest(std::span<const UsageEvent> events, std::span<const FileCursor> cursors,
                           PerProvider<int64_t>* addedByProvider) {
  // Encode first: a cursor that cannot be written fails the call before any statement runs.
  std::vector<std::string> cursorTexts;
  cursorTexts.reserve(cursors.size());
  for (const FileCursor& cursor : cursors) cursorTexts.push_back(json::dump(cursor.toJson()));

  return withDatabase("save the new replies", [&](SQLiteDatabase& db) {
    const PreparedStatement saveCursor = db.prepared(kSaveCursor);
    PerProvider<int64_t> added;
    db.transaction([&] {
      added = {};  // a transaction tried again starts over
      LedgerWriter{db}.write(events, added);
      for (size_t i = 0; i < cursors.size(); ++i) {
        db.run(saveCursor, {cursors[i].path, cursorTexts[i]});
      }
    });
    int64_t inserted = 0;
    for (ProviderID provider : ProviderID::allCases) {
      inserted += added[provider];
      if (addedByProvider) (*addedByProvider)[provider] += added[provider];
    }
    return inserted;
  });
}

std::optional<FileCursor> UsageStore::cursor(const std::string& path) {
  std::optional<std::string> text;
  withDatabase("read a log's cursor", [&](SQLiteDatabase& db) {
    db.query("SELECT json FROM cursors WHERE path = ?1", {path}, [&](const Row& row) {
      if (!text) text = std::string(row.text(0));
    });
  });
  if (!text) return std::nullopt;
  FileCursor found = FileCursor::fromJson(json::parse(*text));
  found.path = path;  // see allCursors
  return found;
}

std::map<std::string, FileCursor> UsageStore::allCursors() {
  std::map<std::string, FileCursor> cursors;
  withDatabase("read the logs' cursors", [&](SQLiteDatabase& db) {
    db.query("SELECT path, json FROM cursors", {}, [&](const Row& row) {
      // A damaged row is as good as none: that file is read again from its start.
      if (auto cursor = FileCursor::fromJsonText(row.text(1))) {
        // The key holds the path's exact bytes; the JSON text holds a path that is not UTF-8
        // with its bad bytes replaced, so the key is the one to trust and to save under again.
        cursor->path = row.text(0);
        cursors.emplace(row.text(0), std::move(*cursor));
      }
    });
  });
  return cursors;
}

void UsageStore::save(const FileCursor& cursor) {
  const std::string text = json::dump(cursor.toJson());
  withDatabase("save a log's cursor", [&](SQLiteDatabase& db) {
    db.run(kSaveCursor, {cursor.path, text});
  });
}

void UsageStore::resetCursors(ProviderID provider) {
  withDatabase("reset the cursors", [&](SQLiteDatabase& db) {
    std::vector<std::pair<std::string, std::string>> rows;
    db.query("SELECT path, json FROM cursors", {},
             [&](const Row& row) { rows.emplace_back(row.text(0), row.text(1)); });
    db.transaction([&] {
      for (const auto& [path, text] : rows) {
        std::optional<FileCursor> cursor;
        try {
          cursor = FileCursor::fromJson(json::parse(text));
        } catch (const JsonDecodeError&) {
          continue;  // not ours to judge: keep it
        }
        const auto owner = cursor->context.find(FileCursor::providerKey);
        if (owner == cursor->context.end() || owner->second != provider.rawValue()) continue;
        db.run("DELETE FROM cursors WHERE path = ?1", {path});
      }
    });
  });
}

void UsageStore::setLimits(const ProviderLimits& limits, ProviderID provider) {
  const std::string text = json::dump(limits.toJson(DateForm::referenceSeconds));
  const std::vector<LimitReading> fresh = LimitReading::of(provider, limits);
  withDatabase("store the limits", [&](SQLiteDatabase& db) {
    db.transaction([&] {
      db.run("INSERT OR REPLACE INTO limits(provider, json) VALUES(?1, ?2)",
             {provider.rawValue(), text});
      LimitHistory::add(db, fresh);
    });
  });
}

int64_t UsageStore::addReadings(std::span<const LimitReading> readings) {
  return withDatabase("store limit readings", [&](SQLiteDatabase& db) {
    int64_t stored = 0;
    db.transaction([&] { stored = LimitHistory::add(db, readings); });
    return stored;
  });
}

std::vector<LimitForecast::Point> UsageStore::readingPoints(ProviderID provider,
                                                            const std::string& window, Date since,
                                                            Date until) {
  return withDatabase("read the limit readings", [&](SQLiteDatabase& db) {
    return LimitHistory::points(db, provider, window, since, until);
  });
}

std::vector<LimitReading> UsageStore::readings(const ReadingFilter& filter) {
  return withDatabase("read the limit readings",
                      [&](SQLiteDatabase& db) { return LimitHistory::read(db, filter); });
}

std::optional<ProviderLimits> UsageStore::limits(ProviderID provider) {
  std::optional<std::string> text;
  withDatabase("read the stored limits", [&](SQLiteDatabase& db) {
    db.query("SELECT json FROM limits WHERE provider = ?1", {provider.rawValue()},
             [&](const Row& row) {
               if (!text) text = std::string(row.text(0));
             });
  });
  if (!text) return std::nullopt;
  return ProviderLimits::fromJson(json::parse(*text), DateForm::referenceSeconds);
}

void UsageStore::prune(Date date, const Calendar& calendar) {
  // Whole UTC days go, up to the one that holds the local day's start: the slot rows and the
  // per-day quarter rows always hold the same days.
  const int64_t utcDay = dayOfSlot(slotOf(calendar.startOfDay(date)));
  const int64_t slot = utcDay * kSlotsPerDay;
  const std::string day = calendar.dayKey(date);
  withDatabase("prune old rows", [&](SQLiteDatabase& db) {
    db.transaction([&] {
      db.run("DELETE FROM usage WHERE slot < ?1", {slot});
      db.run("DELETE FROM replies WHERE slot < ?1", {slot});
      db.run("DELETE FROM day_usage WHERE day < ?1", {utcDay});
      db.run("DELETE FROM day_sessions WHERE day < ?1", {utcDay});
      db.run("DELETE FROM sessions WHERE last_reply < ?1", {referenceSeconds(slotStart(slot))});
      db.run("DELETE FROM kept_days WHERE day < ?1", {day});
      LimitHistory::prune(db, calendar.startOfDay(date));
    });
  });
}

std::vector<std::string> UsageStore::damage(int limit) {
  return withDatabase("check the usage database", [&](SQLiteDatabase& db) {
    std::vector<std::string> problems;
    try {
      db.query(fmt::format("PRAGMA integrity_check({})", std::max(1, limit)), {},
               [&](const Row& row) {
                 // A finding may begin with a line naming the schema ("*** in database main
                 // ***"), which says nothing to a user of a file with one schema.
                 std::string_view text = row.text(0);
                 while (!text.empty() && text != "ok") {
                   const std::string_view line = text.substr(0, text.find('\n'));
                   text.remove_prefix(std::min(text.size(), line.size() + 1));
                   if (!line.starts_with("*** ")) problems.emplace_back(line);
                 }
               });
    } catch (const UsageStoreError& error) {
      // A page too damaged to walk ends the check early: that is a finding too.
      if ((error.code() & 0xff) != SQLITE_CORRUPT) throw;
      problems.push_back(error.message());
    }
    return problems;
  });
}

int64_t UsageStore::dataVersion() {
  int64_t version = 0;
  withDatabase("read the data version", [&](SQLiteDatabase& db) {
    db.query("PRAGMA data_version", {}, [&](const Row& row) { version = row.integer(0); });
  });
  return version;
}

LedgerDays UsageStore::days(const LedgerFilter& filter, const Calendar& calendar) {
  return withDatabase("read the usage ledger",
                      [&](SQLiteDatabase& db) { return LedgerReader{db}.days(filter, calendar); });
}

std::vector<ShareMark> UsageStore::shareMarks() {
  return withDatabase("read which days changed",
                      [&](SQLiteDatabase& db) { return ShareMarks::all(db); });
}

LedgerRows UsageStore::ledger(const LedgerFilter& filter) {
  return withDatabase("read the usage ledger",
                      [&](SQLiteDatabase& db) { return LedgerReader{db}.rows(filter); });
}

UsageSummary UsageStore::summary(int days, Date now, const Calendar& calendar,
                                 const PriceTable& prices) {
  return summary(SummaryWindow::make(days, now, calendar), calendar, prices);
}

UsageSummary UsageStore::summary(const SummaryWindow& window, const Calendar& calendar,
                                 const PriceTable& prices, std::optional<ProviderID> tool,
                                 std::optional<std::string> project) {
  return summaryOf(*this, window, calendar, prices, tool, std::move(project));
}

}  // namespace brimlog
