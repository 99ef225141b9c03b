#include "store/LedgerWriter.hpp"

#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "store/DayQuarters.hpp"
#include "store/Ledger.hpp"
#include "store/ShareMarks.hpp"
#include "store/StoreSQL.hpp"

namespace brimlog {
namespace {

constexpr std::string_view kInsertReply =
    "INSERT INTO replies(key, slot, uncached, cache_read, w5m, w1h, output, reasoning, "
    "reported_usd) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9) ON CONFLICT(key) DO NOTHING";
constexpr std::string_view kSelectReply =
    "SELECT slot, uncached, cache_read, w5m, w1h, output, reasoning, reported_usd "
    "FROM replies WHERE key = ?1";
constexpr std::string_view kUpdateReply =
    "UPDATE replies SET uncached = ?2, cache_read = ?3, w5m = ?4, w1h = ?5, output = ?6, "
    "reasoning = ?7, reported_usd = ?8 WHERE key = ?1";

struct Session {
  const UsageEvent* first;
  std::string_view project;
  Date firstReply;
  Date lastReply;
  int64_t id = 0;
};

// One key's lines of the batch, folded into the largest counts they carry.
struct Reply {
  const UsageEvent* first;
  size_t session;
  UsageEvent folded;  // only counts and cost are kept up to date
};

struct UsageRow {
  int64_t slot;
  int64_t session;
  ProviderID provider;
  std::string_view model;
  TokenCounts tokens;
  std::optional<double> reportedUSD;
};

TokenCounts minus(const TokenCounts& a, const TokenCounts& b) {
  return {
      a.uncachedInput - b.uncachedInput, a.cacheRead - b.cacheRead, a.cacheWrite5m - b.cacheWrite5m,
      a.cacheWrite1h - b.cacheWrite1h,   a.output - b.output,       a.reasoning - b.reasoning};
}

Bind costBind(std::optional<double> cost) { return cost ? Bind{*cost} : Bind{nullptr}; }

}  // namespace

void LedgerWriter::write(std::span<const UsageEvent> events, PerProvider<int64_t>& added) {
  // Fold the batch first: one statement per session, per reply and per usage row, not per line.
  // The maps look at the events' own strings, which outlive this call: no key is copied.
  std::vector<Session> sessions;
  std::vector<Reply> replies;
  PerProvider<std::unordered_map<std::string_view, size_t>> sessionIndex;
  std::unordered_map<std::string_view, size_t> replyIndex;
  replyIndex.reserve(events.size());
  for (const UsageEvent& event : events) {
    const auto [foundSession, newSession] =
        sessionIndex[event.provider].try_emplace(event.sessionID, sessions.size());
    if (newSession) sessions.push_back({&event, {}, event.timestamp, event.timestamp});
    Session& session = sessions[foundSession->second];
    session.firstReply = std::min(session.firstReply, event.timestamp);
    session.lastReply = std::max(session.lastReply, event.timestamp);
    if (session.project.empty()) session.project = event.project;

    const auto [foundReply, newReply] = replyIndex.try_emplace(event.dedupKey, replies.size());
    if (newReply) {
      Reply& reply = replies.emplace_back(Reply{&event, foundSession->second, {}});
      reply.folded.tokens = event.tokens;
      reply.folded.reportedCostUSD = event.reportedCostUSD;
    } else {
      replies[foundReply->second].folded.absorb(event);
    }
  }

  const PreparedStatement upsertSession = db_.prepared(sql::kSessionUpsert);
  for (Session& session : sessions) {
    db_.query(upsertSession,
              {session.first->provider.rawValue(), session.first->sessionID, session.project,
               referenceSeconds(session.firstReply), referenceSeconds(session.lastReply)},
              [&](const Row& row) { session.id = row.integer(0); });
  }

  const PreparedStatement insertReply = db_.prepared(kInsertReply);
  const PreparedStatement selectReply = db_.prepared(kSelectReply);
  const PreparedStatement updateReply = db_.prepared(kUpdateReply);
  std::vector<UsageRow> usage;
  // (slot, session, model) -> row; a model's name is compared, not hashed, within its slot and
  // session.
  std::unordered_multimap<uint64_t, size_t> usageIndex;
  for (const Reply& reply : replies) {
    const UsageEvent& event = *reply.first;
    const TokenCounts& t = reply.folded.tokens;
    int64_t slot = slotOf(event.timestamp);
    TokenCounts delta = t;
    std::optional<double> costDelta = reply.folded.reportedCostUSD;
    if (db_.run(insertReply, {event.dedupKey, slot, t.uncachedInput, t.cacheRead, t.cacheWrite5m,
                              t.cacheWrite1h, t.output, t.reasoning, costBind(costDelta)}) == 1) {
      ++added[event.provider];
    } else {
      // Counted before: only what this batch saw beyond that is new, in the reply's own slot.
      TokenCounts counted;
      std::optional<double> countedUSD;
      db_.query(selectReply, {event.dedupKey}, [&](const Row& row) {
        slot = row.integer(0);
        counted = {row.integer(1), row.integer(2), row.integer(3),
                   row.integer(4), row.integer(5), row.integer(6)};
        if (!row.isNull(7)) countedUSD = row.real(7);
      });
      UsageEvent stored;
      stored.tokens = counted;
      stored.reportedCostUSD = countedUSD;
      stored.absorb(reply.folded);
      const TokenCounts& now = stored.tokens;
      const std::optional<double> nowUSD = stored.reportedCostUSD;
      if (now == counted && nowUSD == countedUSD) continue;
      db_.run(updateReply, {event.dedupKey, now.uncachedInput, now.cacheRead, now.cacheWrite5m,
                            now.cacheWrite1h, now.output, now.reasoning, costBind(nowUSD)});
      delta = minus(now, counted);
      costDelta = nowUSD == countedUSD ? std::nullopt
                                       : std::optional<double>(*nowUSD - countedUSD.value_or(0));
    }
    const int64_t session = sessions[reply.session].id;
    const uint64_t hash = static_cast<uint64_t>(slot) * 0x9E3779B97F4A7C15ull ^
                          static_cast<uint64_t>(session) * 0xC2B2AE3D27D4EB4Full;
    size_t index = usage.size();
    for (auto [at, end] = usageIndex.equal_range(hash); at != end; ++at) {
      const UsageRow& candidate = usage[at->second];
      if (candidate.slot == slot && candidate.session == session &&
          candidate.model == event.model) {
        index = at->second;
        break;
      }
    }
    if (index == usage.size()) {
      usageIndex.emplace(hash, index);
      usage.push_back({slot, session, event.provider, event.model, {}, std::nullopt});
    }
    UsageRow& row = usage[index];
    row.tokens += delta;
    if (costDelta) row.reportedUSD = row.reportedUSD.value_or(0) + *costDelta;
  }

  const PreparedStatement upsertUsage = db_.prepared(sql::kUsageUpsert);
  std::map<std::tuple<int64_t, std::string_view, std::string_view>, DayQuarters> days;
  std::map<std::pair<int64_t, int64_t>, ActiveQuarters> active;
  for (const UsageRow& row : usage) {
    const TokenCounts& t = row.tokens;
    db_.run(upsertUsage,
            {row.slot, row.session, row.model, t.uncachedInput, t.cacheRead, t.cacheWrite5m,
             t.cacheWrite1h, t.output, t.reasoning, costBind(row.reportedUSD)});
    const int64_t day = dayOfSlot(row.slot);
    const auto quarter = static_cast<uint8_t>(row.slot - day * kSlotsPerDay);
    days[{day, row.provider.rawValue(), row.model}].add(quarter, t, row.reportedUSD);
    active[{day, row.session}].set(quarter);
  }
  writeDays(days, active);
  std::vector<int64_t> changed;
  for (const auto& [key, quarters] : days) changed.push_back(std::get<0>(key));
  ShareMarks::mark(db_, ShareKind::usage, changed);
}

void LedgerWriter::writeDays(
    const std::map<std::tuple<int64_t, std::string_view, std::string_view>, DayQuarters>& days,
    const std::map<std::pair<int64_t, int64_t>, ActiveQuarters>& active) {
  const PreparedStatement readDay = db_.prepared(
      "SELECT quarters FROM day_usage WHERE day = ?1 AND provider = ?2 AND model = ?3");
  const PreparedStatement writeDay = db_.prepared(
      "INSERT OR REPLACE INTO day_usage(day, provider, model, quarters) VALUES(?1, ?2, ?3, ?4)");
  for (const auto& [key, added] : days) {
    const auto& [day, provider, model] = key;
    DayQuarters stored;
    db_.query(readDay, {day, provider, model},
              [&](const Row& row) { stored = DayQuarters::decode(row.blob(0)); });
    for (const auto& [quarter, usage] : added.quarters) {
      stored.add(quarter, usage.tokens, usage.reportedUSD);
    }
    const std::string blob = stored.encode();
    db_.run(writeDay, {day, provider, model, Blob{blob}});
  }
  const PreparedStatement readActive =
      db_.prepared("SELECT quarters FROM day_sessions WHERE day = ?1 AND session = ?2");
  const PreparedStatement writeActive = db_.prepared(
      "INSERT OR REPLACE INTO day_sessions(day, session, quarters) VALUES(?1, ?2, ?3)");
  for (const auto& [key, quarters] : active) {
    ActiveQuarters merged = quarters;
    db_.query(readActive, {key.first, key.second},
              [&](const Row& row) { merged.merge(row.blob(0)); });
    db_.run(writeActive, {key.first, key.second, Blob{merged.blob()}});
  }
}

}  // namespace brimlog
