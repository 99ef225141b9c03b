#include "share/SharedLedger.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

#include "share/PgConnection.hpp"
#include "share/ShareBatch.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {
namespace {

// The tables of schema 1, in the schema `brimlog` so they sit beside anything else the database
// holds. Times are seconds since 1970 (`to_timestamp` turns them into dates); a slot is a
// quarter hour of UTC time, counted from 1970. Deleting a machine deletes all its rows.
constexpr std::string_view kSchema = R"(
CREATE SCHEMA IF NOT EXISTS brimlog;
CREATE TABLE brimlog.schema_version(version integer NOT NULL);
CREATE TABLE brimlog.machines(
  machine text PRIMARY KEY, user_name text NOT NULL DEFAULT '',
  last_shared double precision NOT NULL);
CREATE TABLE brimlog.sessions(
  machine text NOT NULL REFERENCES brimlog.machines ON DELETE CASCADE,
  provider text NOT NULL, session_id text NOT NULL, project text NOT NULL DEFAULT '',
  first_reply double precision NOT NULL, last_reply double precision NOT NULL,
  PRIMARY KEY(machine, provider, session_id));
CREATE TABLE brimlog.usage(
  machine text NOT NULL REFERENCES brimlog.machines ON DELETE CASCADE,
  slot bigint NOT NULL, provider text NOT NULL, session_id text NOT NULL, model text NOT NULL,
  uncached bigint NOT NULL, cache_read bigint NOT NULL, w5m bigint NOT NULL, w1h bigint NOT NULL,
  output bigint NOT NULL, reasoning bigint NOT NULL, reported_usd double precision,
  PRIMARY KEY(machine, slot, provider, session_id, model));
CREATE INDEX usage_by_slot ON brimlog.usage(slot);
CREATE TABLE brimlog.kept_days(
  machine text NOT NULL REFERENCES brimlog.machines ON DELETE CASCADE,
  provider text NOT NULL, model text NOT NULL, day date NOT NULL,
  uncached bigint NOT NULL, cache_read bigint NOT NULL, w5m bigint NOT NULL, w1h bigint NOT NULL,
  output bigint NOT NULL, reasoning bigint NOT NULL, reported_usd double precision,
  sessions bigint NOT NULL, PRIMARY KEY(machine, provider, model, day));
CREATE TABLE brimlog.limit_readings(
  machine text NOT NULL REFERENCES brimlog.machines ON DELETE CASCADE,
  provider text NOT NULL, window_id text NOT NULL, read_at double precision NOT NULL,
  used double precision NOT NULL, resets_at double precision, duration double precision,
  origin text NOT NULL, PRIMARY KEY(machine, provider, window_id, read_at));
CREATE TABLE brimlog.shared_days(
  machine text NOT NULL REFERENCES brimlog.machines ON DELETE CASCADE,
  kind text NOT NULL, day bigint NOT NULL, mark bigint NOT NULL,
  PRIMARY KEY(machine, kind, day));
INSERT INTO brimlog.schema_version VALUES(1);
)";

// Days of marks sent in one transaction: a year of a heavy user's ledger is about 20 batches.
constexpr size_t kBatchDays = 16;

std::optional<std::string> textOf(const std::optional<ProviderID>& provider) {
  if (!provider) return std::nullopt;
  return std::string(provider->rawValue());
}

}  // namespace

SharedLedger::SharedLedger(const std::string& target, SharedFilter filter)
    : db_(std::make_unique<PgConnection>(target)), filter_(std::move(filter)) {
  createSchema();
}

SharedLedger::~SharedLedger() = default;

const std::string& SharedLedger::name() const { return db_->name(); }

void SharedLedger::createSchema() {
  const auto version = [&]() -> int64_t {
    if (db_->query("SELECT to_regclass('brimlog.schema_version') IS NULL").text(0, 0) == "t") {
      return 0;
    }
    PgResult result = db_->query("SELECT max(version) FROM brimlog.schema_version");
    return result.integer(0, 0);
  };
  // Most opens find the schema in place and write nothing: a reader may have no right to.
  int64_t found = version();
  if (found == 0) {
    // Two machines sharing for the first time at once: one creates, the other waits and sees it.
    db_->exec("BEGIN");
    try {
      db_->query("SELECT pg_advisory_xact_lock(4779539263412480876)");
      found = version();
      if (found == 0) db_->exec(kSchema);
      db_->exec("COMMIT");
    } catch (...) {
      db_->exec("ROLLBACK");
      throw;
    }
    if (found == 0) found = schemaVersion;
  }
  if (found > schemaVersion) {
    throw SharedLedgerError(fmt::format(
        "{}: the shared ledger was set up by a newer Brimlog (schema {}); this one knows up to "
        "schema {}",
        name(), found, schemaVersion));
  }
}

ShareResult SharedLedger::share(UsageStore& store, const std::string& machine,
                                const std::string& user,
                                const std::function<void(const ShareProgress&)>& progress) {
  if (machine.empty()) throw SharedLedgerError(name() + ": a machine shares under a name");
  // The marks are read before any row: a day written to meanwhile is sent with rows at least as
  // new as its mark, and again next time.
  const std::vector<ShareMark> local = store.shareMarks();
  std::map<std::pair<std::string, int64_t>, int64_t> held;
  PgResult remote =
      db_->query("SELECT kind, day, mark FROM brimlog.shared_days WHERE machine = $1", {machine});
  for (int row = 0; row < remote.rows(); ++row) {
    held[{std::string(remote.text(row, 0)), remote.integer(row, 1)}] = remote.integer(row, 2);
  }
  std::vector<std::pair<ShareMark, bool>> pending;  // and whether rows of the day are held
  for (const ShareMark& mark : local) {
    const auto found = held.find({std::string(ShareMarks::nameOf(mark.kind)), mark.day});
    if (found == held.end()) {
      pending.emplace_back(mark, false);
    } else if (found->second != mark.mark) {
      pending.emplace_back(mark, true);
    }
  }

  ShareResult result;
  if (pending.empty()) {
    // Nothing to send; the machine is still seen to have shared now.
    ShareBatch{machine, user}.send(*db_);
    return result;
  }
  ShareProgress told{0, static_cast<int64_t>(pending.size())};
  std::set<std::string> sessions;  // a session whose days fall in two batches counts once
  for (size_t start = 0; start < pending.size(); start += kBatchDays) {
    ShareBatch batch{machine, user};
    for (size_t i = start; i < std::min(pending.size(), start + kBatchDays); ++i) {
      const auto& [mark, wasHeld] = pending[i];
      const Date from = dateFromUnixSeconds(static_cast<double>(mark.day) * 86400);
      const Date to = dateFromUnixSeconds(static_cast<double>(mark.day + 1) * 86400);
      if (mark.kind == ShareKind::usage) {
        batch.addUsageDay(mark, store.ledger(LedgerFilter{from, to, {}, {}}), wasHeld);
      } else {
        std::vector<LimitReading> readings = store.readings(ReadingFilter{{}, {}, from, to});
        std::erase_if(readings, [&](const LimitReading& r) { return !(r.readAt < to); });
        batch.addReadingDay(mark, readings, wasHeld);
      }
    }
    batch.send(*db_);
    result.days += batch.usageDays();
    result.usageRows += batch.usageRows();
    sessions.insert(batch.sessionKeys().begin(), batch.sessionKeys().end());
    result.sessions = static_cast<int64_t>(sessions.size());
    result.readingDays += batch.readingDays();
    result.readings += batch.readings();
    told.daysSent += batch.days();
    if (progress) progress(told);
  }
  return result;
}

std::vector<SharedMachine> SharedLedger::machines() {
  PgResult result = db_->query(
      "SELECT machine, user_name, last_shared FROM brimlog.machines "
      "WHERE ($1::text IS NULL OR machine = $1) AND ($2::text IS NULL OR user_name = $2) "
      "ORDER BY machine",
      {filter_.machine, filter_.user});
  std::vector<SharedMachine> machines;
  for (int row = 0; row < result.rows(); ++row) {
    machines.push_back({std::string(result.text(row, 0)), std::string(result.text(row, 1)),
                        dateFromUnixSeconds(result.real(row, 2))});
  }
  return machines;
}

LedgerRows SharedLedger::ledger(const LedgerFilter& filter) {
  LedgerRows rows;
  rows.from = filter.from;
  rows.to = filter.to;
  const auto [first, last] = SlotSpan::of(filter);
  if (last < first) return rows;
  const std::optional<std::string> tool = textOf(filter.provider);

  // A session is one machine's: its number here stands for (machine, tool, session id).
  std::unordered_map<std::string, int64_t> ids;
  const auto keyOf = [](std::string_view machine, std::string_view provider,
                        std::string_view session) {
    return fmt::format("{}\t{}\t{}", machine, provider, session);
  };
  PgResult sessions = db_->query(
      "SELECT s.machine, s.provider, s.session_id, s.project, s.first_reply, s.last_reply "
      "FROM brimlog.sessions s JOIN brimlog.machines m USING (machine) "
      "WHERE s.last_reply >= $1 AND s.first_reply < $2 AND ($3::text IS NULL OR s.provider = $3) "
      "AND ($4::text IS NULL OR s.project = $4) AND ($5::text IS NULL OR s.machine = $5) "
      "AND ($6::text IS NULL OR m.user_name = $6) ORDER BY s.machine, s.provider, s.session_id",
      {fmt::format("{}", unixSeconds(slotStart(first))),
       fmt::format("{}", unixSeconds(slotStart(last + 1))), tool, filter.project, filter_.machine,
       filter_.user});
  for (int row = 0; row < sessions.rows(); ++row) {
    const auto provider = ProviderID::fromRawValue(sessions.text(row, 1));
    if (!provider) continue;  // a tool a newer Brimlog reads
    const int64_t id = static_cast<int64_t>(rows.sessions.size()) + 1;
    ids.emplace(keyOf(sessions.text(row, 0), sessions.text(row, 1), sessions.text(row, 2)), id);
    rows.sessions.push_back(LedgerSession{
        id, *provider, std::string(sessions.text(row, 2)), std::string(sessions.text(row, 3)),
        dateFromUnixSeconds(sessions.real(row, 4)), dateFromUnixSeconds(sessions.real(row, 5))});
  }

  PgResult slots = db_->query(
      "SELECT u.machine, u.provider, u.session_id, u.slot, u.model, u.uncached, u.cache_read, "
      "u.w5m, u.w1h, u.output, u.reasoning, u.reported_usd "
      "FROM brimlog.usage u JOIN brimlog.machines m USING (machine) "
      "WHERE u.slot >= $1 AND u.slot <= $2 AND ($3::text IS NULL OR u.provider = $3) "
      "AND ($4::text IS NULL OR u.machine = $4) AND ($5::text IS NULL OR m.user_name = $5) "
      "ORDER BY u.slot",
      {std::to_string(first), std::to_string(last), tool, filter_.machine, filter_.user});
  for (int row = 0; row < slots.rows(); ++row) {
    const auto id = ids.find(keyOf(slots.text(row, 0), slots.text(row, 1), slots.text(row, 2)));
    if (id == ids.end()) continue;  // another project's
    rows.slots.push_back(LedgerSlot{
        slots.integer(row, 3), id->second, std::string(slots.text(row, 4)),
        TokenCounts{slots.integer(row, 5), slots.integer(row, 6), slots.integer(row, 7),
                    slots.integer(row, 8), slots.integer(row, 9), slots.integer(row, 10)},
        slots.isNull(row, 11) ? std::nullopt : std::optional<double>(slots.real(row, 11))});
  }

  // Kept day totals carry no project.
  if (filter.project) return rows;
  const auto near = keptDayKeysNear(filter);
  PgResult kept = db_->query(
      "SELECT k.provider, k.model, k.day, k.uncached, k.cache_read, k.w5m, k.w1h, k.output, "
      "k.reasoning, k.reported_usd, k.sessions FROM brimlog.kept_days k "
      "JOIN brimlog.machines m USING (machine) WHERE k.day >= $1::date AND k.day <= $2::date "
      "AND ($3::text IS NULL OR k.provider = $3) AND ($4::text IS NULL OR k.machine = $4) "
      "AND ($5::text IS NULL OR m.user_name = $5) ORDER BY k.day, k.provider, k.model",
      {near.first, near.second, tool, filter_.machine, filter_.user});
  for (int row = 0; row < kept.rows(); ++row) {
    const auto provider = ProviderID::fromRawValue(kept.text(row, 0));
    if (!provider) continue;
    rows.keptDays.push_back(
        KeptDay{*provider, std::string(kept.text(row, 1)), std::string(kept.text(row, 2)),
                TokenCounts{kept.integer(row, 3), kept.integer(row, 4), kept.integer(row, 5),
                            kept.integer(row, 6), kept.integer(row, 7), kept.integer(row, 8)},
                kept.isNull(row, 9) ? std::nullopt : std::optional<double>(kept.real(row, 9)),
                kept.integer(row, 10)});
  }
  return rows;
}

LedgerDays SharedLedger::days(const LedgerFilter& filter, const Calendar& calendar) {
  return LedgerDays::of(ledger(filter), calendar);
}

}  // namespace brimlog
