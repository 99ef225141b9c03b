#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Date.hpp"
#include "store/LedgerSource.hpp"

namespace brimlog {

class PgConnection;
class UsageStore;

/// Which machines' rows a shared ledger's reports read: all, or those of one machine or user.
struct SharedFilter {
  std::optional<std::string> machine{};
  std::optional<std::string> user{};
};

/// One machine that shares into the ledger.
struct SharedMachine {
  std::string machine;
  std::string user;  // empty when the machine shares without one
  Date lastShared;
};

/// How far a share has come: UTC days of usage and of limit readings sent, of those to send.
struct ShareProgress {
  int64_t daysSent = 0;
  int64_t daysToSend = 0;
};

/// What one share sent.
struct ShareResult {
  int64_t days = 0;       // UTC days whose usage was sent
  int64_t usageRows = 0;  // slot rows among them
  int64_t sessions = 0;
  int64_t readingDays = 0;  // UTC days whose limit readings were sent
  int64_t readings = 0;

  bool sentAnything() const { return days > 0 || readingDays > 0; }
};

/// A ledger in a PostgreSQL database that several machines share theirs into, each under its
/// own name, and that reports read across machines.
///
/// Sharing sends a machine's rows of every UTC day that changed since this database last got
/// them: the local ledger marks each day it writes to, and the shared one keeps, per machine,
/// the mark it holds of each day. A day's rows replace that machine's rows of the day, and its
/// mark is stored with them in the same transaction (one per batch of days), so a share cut
/// anywhere leaves whole days and is finished by the next; sharing again sends nothing. Rows
/// pruned from the local ledger stay in the shared one. A machine's rows are only ever written
/// by a share under that machine's name.
///
///     SharedLedger shared{"postgresql://ana@db.example/team"};
///     shared.share(store, "laptop", "ana");
///     SharedLedger team{"postgresql://ana@db.example/team", {.user = "ana"}};
///     UsageSummary s = summaryOf(team, window, calendar, prices);
class SharedLedger : public LedgerSource {
 public:
  static constexpr int32_t schemaVersion = 1;

  /// Connects to `target` (a `postgresql://` URI or a libpq connection string) and creates or
  /// migrates the schema `brimlog` in it. Throws `SharedLedgerError`, also for a schema written
  /// by a newer Brimlog.
  explicit SharedLedger(const std::string& target, SharedFilter filter = {});
  ~SharedLedger() override;
  SharedLedger(const SharedLedger&) = delete;
  SharedLedger& operator=(const SharedLedger&) = delete;

  /// Sends what changed in `store` since this database last got it, under `machine` (and
  /// `user`, which may be empty). `progress` is told after each committed batch.
  ShareResult share(UsageStore& store, const std::string& machine, const std::string& user,
                    const std::function<void(const ShareProgress&)>& progress = {});

  /// The machines the filter lets through, by name.
  std::vector<SharedMachine> machines();

  /// The slot rows of every machine the filter lets through. A session is one machine's: the
  /// same tool and session id on two machines are two sessions.
  LedgerRows ledger(const LedgerFilter& filter) override;
  LedgerDays days(const LedgerFilter& filter, const Calendar& calendar) override;

  /// The database as it may be shown, without its password.
  const std::string& name() const;

 private:
  void createSchema();

  std::unique_ptr<PgConnection> db_;
  SharedFilter filter_;
};

}  // namespace brimlog
