// Benchmarks of the usage store: ingesting a quarter of usage into a fresh database file (beside
// the bare SQLite inserts of its reply keys, the part of it no code of ours can speed up), and
// summarising 30 days out of two years of stored rows.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <vector>

#include "SplitMix64.hpp"
#include "display/SnapshotStore.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {
namespace {

const Date kNow = dateFromUnixSeconds(1'793'275'200);  // 2026-10-29T12:00:00Z

const char* const kModels[] = {
    "claude-opus-4-6",
    "claude-sonnet-4-5-20250929",
    "claude-haiku-4-5-20251001",
    "claude-opus-4-5",
    "claude-sonnet-4-20250514",
    "gpt-5.3-codex",
    "gpt-5.5",
    "gpt-5.1-codex",
    "gpt-5-mini",
    "grok-code-fast-1",
    "grok-4",
    "claude-opus-4-1",
    "gpt-5.2-codex",
    "claude-3-7-sonnet",
    "gpt-5-codex",
    "claude-sonnet-4-6",
    "grok-4.3",
    "gpt-5.4",
    "claude-3-5-haiku",
    "gpt-5-nano",
};

ProviderID providerOf(std::string_view model) {
  if (model.starts_with("gpt")) return ProviderID::codex;
  if (model.starts_with("grok")) return ProviderID::grok;
  return ProviderID::claude;
}

// `count` events with distinct keys over the `days` days before kNow, over `models` models.
std::vector<UsageEvent> makeEvents(int count, int days, int models, uint64_t seed) {
  SplitMix64 random{seed};
  std::vector<UsageEvent> events;
  events.reserve(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    const std::string model = kModels[random.next() % static_cast<uint64_t>(models)];
    const double ago = static_cast<double>(random.next() % (static_cast<uint64_t>(days) * 86400));
    events.push_back({providerOf(model), model, fmt::format("session-{:08x}", random.next() % 4000),
                      fmt::format("msg_{:016x}{:08d}", random.next(), i), kNow - Seconds{ago},
                      TokenCounts{static_cast<int64_t>(random.next() % 5000),
                                  static_cast<int64_t>(random.next() % 200000),
                                  static_cast<int64_t>(random.next() % 20000), 0,
                                  static_cast<int64_t>(random.next() % 4000), 0},
                      std::nullopt, "/home/dev/code/bench"});
  }
  // Logs are read file by file, each in time order: ingest sees time-ordered runs.
  std::sort(events.begin(), events.end(),
            [](const auto& a, const auto& b) { return a.timestamp < b.timestamp; });
  return events;
}

std::filesystem::path freshDirectory() {
  std::string pattern =
      (std::filesystem::temp_directory_path() / "brimlog-store-bench-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  return pattern;
}

// 100,000 events over 90 days and 12 models, in batches of 10,000, into a new database file.
void storeIngest(benchmark::State& state) {
  const auto events = makeEvents(100'000, 90, 12, 42);
  constexpr size_t kBatch = 10'000;
  for (auto _ : state) {
    state.PauseTiming();
    const auto dir = freshDirectory();
    {
      UsageStore store{dir / "usage.db"};
      state.ResumeTiming();
      int64_t added = 0;
      for (size_t start = 0; start < events.size(); start += kBatch) {
        const auto batch =
            std::span(events).subspan(start, std::min(kBatch, events.size() - start));
        added += store.ingest(batch);
      }
      state.PauseTiming();
      if (added != static_cast<int64_t>(events.size())) state.SkipWithError("events lost");
    }
    std::filesystem::remove_all(dir);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(events.size()));
}

// The floor under storeIngest: the same events' `replies` rows alone, inserted through SQLite's
// C API with nothing of ours in between (same table, page size, journal and cache settings,
// batches of 10,000). Every reply costs one such insert, on one thread, however the rest of a
// pass is arranged.
void seenInsertsBare(benchmark::State& state) {
  const auto events = makeEvents(100'000, 90, 12, 42);
  constexpr size_t kBatch = 10'000;
  // As the store sets it up: no allocation counting (a no-op once the library is initialised).
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  const auto check = [&](int code, sqlite3* db) {
    if (code != SQLITE_OK && code != SQLITE_DONE) state.SkipWithError(sqlite3_errmsg(db));
  };
  for (auto _ : state) {
    state.PauseTiming();
    const auto dir = freshDirectory();
    {
      sqlite3* raw = nullptr;
      const int opened = sqlite3_open((dir / "seen.db").c_str(), &raw);
      const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db{raw, &sqlite3_close};
      check(opened, raw);
      check(sqlite3_exec(raw,
                         "PRAGMA page_size=16384; PRAGMA journal_mode=WAL; "
                         "PRAGMA cache_size=-32768; PRAGMA synchronous=NORMAL; "
                         "CREATE TABLE replies(key TEXT PRIMARY KEY, slot INTEGER NOT NULL, "
                         "uncached INTEGER, cache_read INTEGER, w5m INTEGER, w1h INTEGER, "
                         "output INTEGER, reasoning INTEGER, reported_usd REAL) WITHOUT ROWID;",
                         nullptr, nullptr, nullptr),
            raw);
      sqlite3_stmt* statement = nullptr;
      check(sqlite3_prepare_v2(raw,
                               "INSERT INTO replies VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, NULL) "
                               "ON CONFLICT(key) DO NOTHING",
                               -1, &statement, nullptr),
            raw);
      const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> insert{statement,
                                                                              &sqlite3_finalize};
      state.ResumeTiming();
      for (size_t start = 0; start < events.size(); start += kBatch) {
        check(sqlite3_exec(raw, "BEGIN", nullptr, nullptr, nullptr), raw);
        for (size_t i = start; i < std::min(start + kBatch, events.size()); ++i) {
          const std::string& key = events[i].dedupKey;
          sqlite3_bind_text(statement, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
          const TokenCounts& t = events[i].tokens;
          sqlite3_bind_int64(statement, 2, slotOf(events[i].timestamp));
          int column = 3;
          for (const int64_t count : {t.uncachedInput, t.cacheRead, t.cacheWrite5m,
                                      t.cacheWrite1h, t.output, t.reasoning}) {
            sqlite3_bind_int64(statement, column++, count);
          }
          check(sqlite3_step(statement), raw);
          sqlite3_reset(statement);
        }
        check(sqlite3_exec(raw, "COMMIT", nullptr, nullptr, nullptr), raw);
      }
      state.PauseTiming();
    }
    std::filesystem::remove_all(dir);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(events.size()));
}

// summary(days: 30) over two years of daily rows for 20 models.
void storeSummary(benchmark::State& state) {
  const auto dir = freshDirectory();
  const auto calendar = Calendar::utc();
  {
    UsageStore store{dir / "usage.db"};
    std::vector<UsageEvent> events;
    for (int day = 0; day < 730; ++day) {
      for (int m = 0; m < 20; ++m) {
        events.push_back({providerOf(kModels[m]), kModels[m], fmt::format("s{}-{}", day, m % 3),
                          fmt::format("k{}-{}", day, m), kNow - Seconds{day * 86400.0},
                          TokenCounts{1000, 50000, 2000, 100, 800, 10}, std::nullopt, ""});
      }
    }
    store.ingest(events);
    const PriceTable prices = PriceTable::bundled();
    if (prices.models.empty()) state.SkipWithError("prices.json not found");
    for (auto _ : state) {
      const UsageSummary summary = store.summary(30, kNow, calendar, prices);
      benchmark::DoNotOptimize(summary.totalCostUSD);
      if (summary.models.size() != 20) state.SkipWithError("unexpected summary");
    }
  }
  std::filesystem::remove_all(dir);
}

// Snapshot::make and SnapshotStore::write of a 30-day summary of four providers, as every sync
// ends: the atomic replace (temporary file, fsync, rename) included.
void snapshotPublish(benchmark::State& state) {
  const auto dir = freshDirectory();
  const UsageSummary& summary = UsageSummary::preview();
  std::map<ProviderID, ProviderLimits> limits;
  for (const Snapshot::Provider& provider : Snapshot::placeholder().providers) {
    limits[provider.id] = {provider.plan, provider.windows, provider.credits, provider.status,
                           kNow};
  }
  const SnapshotStore store{dir};
  for (auto _ : state) {
    store.write(Snapshot::make(summary, limits, ProviderID::allCases, kNow, Calendar::utc()));
  }
  std::filesystem::remove_all(dir);
}

BENCHMARK(snapshotPublish)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(storeIngest)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);
BENCHMARK(seenInsertsBare)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);
BENCHMARK(storeSummary)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace brimlog
