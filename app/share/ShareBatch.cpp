#include "share/ShareBatch.hpp"

#include <fmt/format.h>

#include <string_view>
#include <utility>

#include "platform/Calendar.hpp"
#include "share/PgConnection.hpp"

namespace brimlog {
namespace {

// The temporary tables a batch is copied into; they live as long as the connection and are
// emptied at every commit.
constexpr std::string_view kTemporaryTables = R"(
CREATE TEMPORARY TABLE IF NOT EXISTS share_usage(
  slot bigint, provider text, session_id text, model text, uncached bigint, cache_read bigint,
  w5m bigint, w1h bigint, output bigint, reasoning bigint, reported_usd double precision)
  ON COMMIT DELETE ROWS;
CREATE TEMPORARY TABLE IF NOT EXISTS share_sessions(
  provider text, session_id text, project text, first_reply double precision,
  last_reply double precision) ON COMMIT DELETE ROWS;
CREATE TEMPORARY TABLE IF NOT EXISTS share_kept(
  provider text, model text, day date, uncached bigint, cache_read bigint, w5m bigint,
  w1h bigint, output bigint, reasoning bigint, reported_usd double precision, sessions bigint)
  ON COMMIT DELETE ROWS;
CREATE TEMPORARY TABLE IF NOT EXISTS share_readings(
  provider text, window_id text, read_at double precision, used double precision,
  resets_at double precision, duration double precision, origin text) ON COMMIT DELETE ROWS;
)";

// The machine's rows of the batch's days are replaced by the batch's: what the shared ledger
// holds of a day is exactly what the machine held when it sent it (rows the machine has since
// merged away go too), and the rows are still upserted by their key, so a row can never be held
// twice whatever happened before. Deleting a day's rows first, by the key's prefix, costs an
// index range; comparing them with the batch's first cost a join over the whole day. A day the
// shared ledger holds no mark of holds no rows either (they are stored together), so only the
// days held before are deleted from. $1 is the machine, $2 those days.
constexpr std::string_view kMergeUsage = R"(
DELETE FROM brimlog.usage u USING unnest($2::bigint[]) AS d(day)
 WHERE u.machine = $1 AND u.slot >= d.day * 96 AND u.slot < d.day * 96 + 96;
INSERT INTO brimlog.sessions(machine, provider, session_id, project, first_reply, last_reply)
SELECT $1, provider, session_id, project, first_reply, last_reply FROM share_sessions
    ON CONFLICT (machine, provider, session_id) DO UPDATE SET project = excluded.project,
       first_reply = excluded.first_reply, last_reply = excluded.last_reply;
INSERT INTO brimlog.usage(machine, slot, provider, session_id, model, uncached, cache_read, w5m,
                          w1h, output, reasoning, reported_usd)
SELECT $1, t.* FROM share_usage t
    ON CONFLICT (machine, slot, provider, session_id, model) DO UPDATE SET
       uncached = excluded.uncached, cache_read = excluded.cache_read, w5m = excluded.w5m,
       w1h = excluded.w1h, output = excluded.output, reasoning = excluded.reasoning,
       reported_usd = excluded.reported_usd;
DELETE FROM brimlog.kept_days k USING unnest($2::bigint[]) AS d(day)
 WHERE k.machine = $1 AND k.day = date '1970-01-01' + d.day::integer;
INSERT INTO brimlog.kept_days(machine, provider, model, day, uncached, cache_read, w5m, w1h,
                              output, reasoning, reported_usd, sessions)
SELECT $1, t.* FROM share_kept t
    ON CONFLICT (machine, provider, model, day) DO UPDATE SET
       uncached = excluded.uncached, cache_read = excluded.cache_read, w5m = excluded.w5m,
       w1h = excluded.w1h, output = excluded.output, reasoning = excluded.reasoning,
       reported_usd = excluded.reported_usd, sessions = excluded.sessions;
)";

constexpr std::string_view kMergeReadings = R"(
DELETE FROM brimlog.limit_readings r USING unnest($2::bigint[]) AS d(day)
 WHERE r.machine = $1 AND r.read_at >= d.day * 86400 AND r.read_at < d.day * 86400 + 86400;
INSERT INTO brimlog.limit_readings(machine, provider, window_id, read_at, used, resets_at,
                                   duration, origin)
SELECT $1, t.* FROM share_readings t
    ON CONFLICT (machine, provider, window_id, read_at) DO UPDATE SET used = excluded.used,
       resets_at = excluded.resets_at, duration = excluded.duration, origin = excluded.origin;
)";

// Appends a value in COPY's text format: a backslash, tab, newline and carriage return escaped.
void appendText(std::string& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += c;
    }
  }
}

// Numbers go as the shortest text that reads back as the same double.
void appendNumber(std::string& out, std::optional<double> value) {
  if (value) {
    fmt::format_to(std::back_inserter(out), "{}", *value);
  } else {
    out += "\\N";
  }
}

void appendTokens(std::string& out, const TokenCounts& t) {
  fmt::format_to(std::back_inserter(out), "\t{}\t{}\t{}\t{}\t{}\t{}", t.uncachedInput, t.cacheRead,
                 t.cacheWrite5m, t.cacheWrite1h, t.output, t.reasoning);
}

// `{1,2,3}`, an array parameter.
std::string arrayOf(const std::vector<int64_t>& values) {
  return fmt::format("{{{}}}", fmt::join(values, ","));
}

}  // namespace

ShareBatch::ShareBatch(std::string machine, std::string user)
    : machine_(std::move(machine)), user_(std::move(user)) {}

int64_t ShareBatch::days() const { return usageDays() + readingDays(); }

void ShareBatch::addUsageDay(const ShareMark& mark, const LedgerRows& rows, bool held) {
  usageDays_.push_back(mark.day);
  if (held) heldUsageDays_.push_back(mark.day);
  usageMarks_.push_back(mark.mark);
  for (const LedgerSlot& slot : rows.slots) {
    const LedgerSession* session = rows.session(slot.session);
    if (!session || dayOfSlot(slot.slot) != mark.day) continue;
    const std::string_view provider = session->provider.rawValue();
    fmt::format_to(std::back_inserter(usage_), "{}\t{}\t", slot.slot, provider);
    appendText(usage_, session->sessionID);
    usage_ += '\t';
    appendText(usage_, slot.model);
    appendTokens(usage_, slot.tokens);
    usage_ += '\t';
    appendNumber(usage_, slot.reportedUSD);
    usage_ += '\n';
    ++usageRows_;
    if (!sessionKeys_.insert(fmt::format("{}\t{}", provider, session->sessionID)).second) continue;
    fmt::format_to(std::back_inserter(sessions_), "{}\t", provider);
    appendText(sessions_, session->sessionID);
    sessions_ += '\t';
    appendText(sessions_, session->project);
    fmt::format_to(std::back_inserter(sessions_), "\t{}\t{}\n", unixSeconds(session->firstReply),
                   unixSeconds(session->lastReply));
  }
  const std::string date = Calendar::utc().dayKey(dateFromUnixSeconds(mark.day * 86400.0));
  for (const KeptDay& kept : rows.keptDays) {
    if (kept.day != date) continue;
    fmt::format_to(std::back_inserter(kept_), "{}\t", kept.provider.rawValue());
    appendText(kept_, kept.model);
    kept_ += '\t' + kept.day;
    appendTokens(kept_, kept.tokens);
    kept_ += '\t';
    appendNumber(kept_, kept.reportedUSD);
    fmt::format_to(std::back_inserter(kept_), "\t{}\n", kept.sessions);
  }
}

void ShareBatch::addReadingDay(const ShareMark& mark, const std::vector<LimitReading>& readings,
                               bool held) {
  readingDays_.push_back(mark.day);
  if (held) heldReadingDays_.push_back(mark.day);
  readingMarks_.push_back(mark.mark);
  for (const LimitReading& reading : readings) {
    fmt::format_to(std::back_inserter(readingRows_), "{}\t", reading.provider.rawValue());
    appendText(readingRows_, reading.window);
    fmt::format_to(std::back_inserter(readingRows_), "\t{}\t{}\t", unixSeconds(reading.readAt),
                   reading.usedFraction);
    appendNumber(readingRows_, reading.resetsAt
                                   ? std::optional<double>(unixSeconds(*reading.resetsAt))
                                   : std::nullopt);
    readingRows_ += '\t';
    appendNumber(readingRows_, reading.duration);
    fmt::format_to(std::back_inserter(readingRows_), "\t{}\n",
                   LimitReading::originName(reading.origin));
    ++readings_;
  }
}

void ShareBatch::send(PgConnection& db) const {
  db.exec("BEGIN");
  try {
    sendRows(db);
    db.exec("COMMIT");
  } catch (...) {
    try {
      db.exec("ROLLBACK");
    } catch (const SharedLedgerError&) {
      // The connection is gone; the server rolls the transaction back itself.
    }
    throw;
  }
}

void ShareBatch::sendRows(PgConnection& db) const {
  db.exec(kTemporaryTables);
  db.query(
      "INSERT INTO brimlog.machines(machine, user_name, last_shared) "
      "VALUES($1, $2, extract(epoch FROM now())) ON CONFLICT (machine) DO UPDATE SET "
      "user_name = excluded.user_name, last_shared = excluded.last_shared",
      {machine_, user_});
  const auto merge = [&](std::string_view statements, const std::vector<int64_t>& days) {
    // Each statement runs with the parameters; a multi-statement text cannot take any.
    size_t start = 0;
    while (start < statements.size()) {
      size_t end = statements.find(";\n", start);
      if (end == std::string_view::npos) end = statements.size();
      const std::string_view statement = statements.substr(start, end - start);
      if (statement.find_first_not_of(" \n") != std::string_view::npos) {
        if (statement.find("$2") == std::string_view::npos) {
          db.query(statement, {machine_});
        } else if (!days.empty()) {
          db.query(statement, {machine_, arrayOf(days)});
        }
      }
      start = end + 2;
    }
  };
  const auto storeMarks = [&](ShareKind kind, const std::vector<int64_t>& days,
                              const std::vector<int64_t>& marks) {
    db.query(
        "INSERT INTO brimlog.shared_days(machine, kind, day, mark) "
        "SELECT $1, $2, d, m FROM unnest($3::bigint[], $4::bigint[]) AS t(d, m) "
        "ON CONFLICT (machine, kind, day) DO UPDATE SET mark = excluded.mark",
        {machine_, std::string(ShareMarks::nameOf(kind)), arrayOf(days), arrayOf(marks)});
  };
  if (!usageDays_.empty()) {
    db.copyIn("COPY share_usage FROM STDIN", usage_);
    db.copyIn("COPY share_sessions FROM STDIN", sessions_);
    db.copyIn("COPY share_kept FROM STDIN", kept_);
    merge(kMergeUsage, heldUsageDays_);
    storeMarks(ShareKind::usage, usageDays_, usageMarks_);
  }
  if (!readingDays_.empty()) {
    db.copyIn("COPY share_readings FROM STDIN", readingRows_);
    merge(kMergeReadings, heldReadingDays_);
    storeMarks(ShareKind::limits, readingDays_, readingMarks_);
  }
}

}  // namespace brimlog
