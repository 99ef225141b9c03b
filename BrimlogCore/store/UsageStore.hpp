#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "model/FileCursor.hpp"
#include "model/LimitReading.hpp"
#include "model/PerProvider.hpp"
#include "model/ProviderLimits.hpp"
#include "model/UsageEvent.hpp"
#include "platform/Calendar.hpp"
#include "store/Ledger.hpp"
#include "store/LedgerSource.hpp"
#include "store/LimitHistory.hpp"
#include "store/SQLiteDatabase.hpp"
#include "store/ShareMarks.hpp"

namespace brimlog {

class PriceTable;
struct UsageSummary;
struct SummaryWindow;

struct UsageStoreOptions {
  /// Open for reading only: nothing is created or written, and a file in a folder that cannot
  /// be written still opens.
  bool readOnly = false;
  /// Seconds to wait for another program's write to finish before failing as busy.
  double busyTimeout = 10;
};

/// The local usage database, a ledger: per session, model and quarter hour of UTC time (a slot,
/// see `Ledger.hpp`), the summed tokens and reported costs of every reply ever counted; each
/// reply's key with the counts it was counted with (so a re-read log never counts a reply twice,
/// and a reply that grows adds only its growth); every session with its project and its first and
/// last reply; day totals kept from an older database whose logs are gone; the log readers'
/// cursors; and each provider's last limits. No figure depends on the zone the logs were read
/// in: every day, week or month is summed from slots in the zone a report asks for.
///
/// Every operation runs on the one connection, one at a time; callers on any thread block until
/// theirs is done. Operations are not re-entrant. Write operations are transactions started with
/// BEGIN IMMEDIATE: all or nothing. A database another program is writing to is waited for
/// (`busyTimeout`), then reported as busy.
///
/// The file carries this program's `application_id`: a file of another program (another id, or
/// no id and tables that are not ours) and a file of a newer schema are refused untouched.
/// Errors name the file, what was being done and what the user can do (`UsageStoreError`).
///
///     UsageStore store{dataDir / "usage.db"};
///     int64_t added = store.ingest(events, cursors);
///     UsageSummary s = store.summary(30, currentDate(), Calendar::current(),
///     PriceTable::bundled());
class UsageStore : public LedgerSource {
 public:
  static constexpr int32_t schemaVersion = 4;
  /// "Brml" in ASCII: the `application_id` that marks a file as this program's.
  static constexpr int32_t applicationId = 0x42726d6c;

  /// Opens or creates the database at `url`; a last path component of exactly ":memory:" opens a
  /// private in-memory database instead. Creates the schema unless `user_version` is already
  /// positive. Throws `UsageStoreError`.
  explicit UsageStore(const std::filesystem::path& url, UsageStoreOptions options = {});
  ~UsageStore() override;
  UsageStore(const UsageStore&) = delete;
  UsageStore& operator=(const UsageStore&) = delete;

  /// Counts a batch in one transaction and returns how many of its replies were seen for the
  /// first time. A reply (a `dedupKey`) is counted with the field-by-field largest counts any of
  /// its events carried, exactly once: an event of a known reply adds only what it carries beyond
  /// what was counted, to the slot the reply was first counted in (`LedgerWriter`). The given
  /// cursors are saved in the same transaction, after the events, so a batch and the read
  /// positions that produced it are stored together or not at all. When `addedByProvider` is
  /// given, the new replies are also added to it per provider, once the transaction has committed.
  int64_t ingest(std::span<const UsageEvent> events, std::span<const FileCursor> cursors = {},
                 PerProvider<int64_t>* addedByProvider = nullptr);

  /// The stored cursor of a log file; throws `JsonDecodeError` when the stored text is damaged.
  std::optional<FileCursor> cursor(const std::string& path);

  /// Every stored cursor by path, in one query; rows that do not decode are left out.
  std::map<std::string, FileCursor> allCursors();

  /// Stores a cursor under its path, replacing an earlier one.
  void save(const FileCursor& cursor);

  /// Deletes the cursors whose context says they belong to `provider` (`FileCursor::providerKey`);
  /// cursors without that entry, of other providers, or that do not decode are kept.
  void resetCursors(ProviderID provider);

  /// Stores a provider's limits (dates as seconds since 2001), replacing earlier ones, and adds
  /// their fresh windows to the history of readings (`addReadings`), in one transaction.
  void setLimits(const ProviderLimits& limits, ProviderID provider);
  /// Adds readings to the history of limits (`LimitHistory`); returns how many were stored.
  int64_t addReadings(std::span<const LimitReading> readings);
  /// The readings of `filter`, by provider, window and time.
  std::vector<LimitReading> readings(const ReadingFilter& filter);
  /// One window's figures over a stretch, for its forecast (`LimitHistory::points`).
  std::vector<LimitForecast::Point> readingPoints(ProviderID provider, const std::string& window,
                                                  Date since, Date until);

  /// A provider's stored limits; throws `JsonDecodeError` when the stored text is damaged.
  std::optional<ProviderLimits> limits(ProviderID provider);

  /// Deletes the usage and replies of UTC days before the one that holds the start of the local
  /// day of `date`, the sessions whose last reply came before them, and kept day totals of local
  /// days before that of `date`; cursors and limits are kept.
  /// A reply older than the cutoff can then be counted again if its line is read again.
  void prune(Date date, const Calendar& calendar);

  /// What SQLite's integrity check finds wrong with the file (every page, index and constraint
  /// is read: about half a second for a database of years), at most `limit` problems in SQLite's
  /// words; empty when the file is sound. A damaged file can still answer queries with wrong or
  /// missing rows, so a caller that finds damage must say so (`UsageStoreError::kRebuild`).
  /// Throws `UsageStoreError` when the check cannot run at all.
  std::vector<std::string> damage(int limit = 10);

  /// A number that changes when another connection (another process) has committed to the
  /// database since the last call; this connection's own writes leave it as it is.
  int64_t dataVersion();

  /// The mark of every UTC day whose usage or limit readings were written (`ShareMarks`), for a
  /// shared ledger to find what changed since it last got this ledger's rows.
  std::vector<ShareMark> shareMarks();

  /// The ledger's rows of a span of time (see `LedgerRows`), for reports computed in any zone.
  LedgerRows ledger(const LedgerFilter& filter) override;

  /// The same span's figures per local day of `calendar` (what `LedgerDays::of` makes of
  /// `ledger(filter)`), read from the per-day quarter rows: a row per UTC day and model, not one
  /// per quarter hour and session.
  LedgerDays days(const LedgerFilter& filter, const Calendar& calendar) override;

  /// The last `days` local days (at least one) up to the day of `now`, priced with `prices`.
  UsageSummary summary(int days, Date now, const Calendar& calendar, const PriceTable& prices);

  /// The days of `window`, only the usage of `tool` and of `project` where they are given.
  UsageSummary summary(const SummaryWindow& window, const Calendar& calendar,
                       const PriceTable& prices, std::optional<ProviderID> tool = std::nullopt,
                       std::optional<std::string> project = std::nullopt);

 private:
  std::unique_ptr<SQLiteDatabase> open(const std::string& path,
                                       const UsageStoreOptions& options) const;

  // Runs `body` with the connection, serialised with every other operation; a failure is told
  // with the file and `doing`.
  template <typename Body>
  decltype(auto) withDatabase(std::string_view doing, Body&& body);

  void saveCursorText(const std::string& path, const std::string& json);

  std::string path_;
  std::mutex mutex_;
  std::unique_ptr<SQLiteDatabase> db_;
};

}  // namespace brimlog
