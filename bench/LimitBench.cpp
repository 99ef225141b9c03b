// The limit history's cost at every fetch: adding a reading and computing every window's
// forecast for the snapshot, on a database holding a year of readings of six windows (one
// every five minutes, each a little above the one before). Beside it, the bare SQLite read of
// one week of one window's rows: the part no code of ours can speed up.

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <map>

#include "display/LimitOutlook.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {
namespace {

const Date kNow = dateFromUnixSeconds(1'793'275'200);  // 2026-10-29T12:00:00Z
constexpr double kStep = 300;
constexpr double kWeek = 604'800;
constexpr double kSession = 18'000;

std::filesystem::path freshDirectory() {
  std::string pattern =
      (std::filesystem::temp_directory_path() / "brimlog-limit-bench-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  return pattern;
}

// The windows read at `at`: a session and a week for Claude (and a model's week) and Codex,
// each rising through its period.
std::map<ProviderID, ProviderLimits> limitsAt(Date at) {
  const auto window = [&](const char* id, double length) {
    const double t = unixSeconds(at);
    const double start = std::floor(t / length) * length;
    return LimitWindow{id,
                       id,
                       (t - start) / length * 0.9,
                       length,
                       dateFromUnixSeconds(start + length),
                       LimitSource::live()};
  };
  std::map<ProviderID, ProviderLimits> limits;
  limits[ProviderID::claude] = {
      std::nullopt,
      {window("session", kSession), window("weekly", kWeek), window("weekly.opus", kWeek)},
      std::nullopt,
      ProviderStatus::ok,
      at};
  limits[ProviderID::codex] = {std::nullopt,
                               {window("session", kSession), window("weekly", kWeek)},
                               std::nullopt,
                               ProviderStatus::ok,
                               at};
  return limits;
}

struct YearOfReadings {
  std::filesystem::path dir = freshDirectory();
  std::unique_ptr<UsageStore> store;

  YearOfReadings() {
    store = std::make_unique<UsageStore>(dir / "usage.db");
    std::vector<LimitReading> batch;
    for (double t = -365 * 86'400.0; t < 0; t += kStep) {
      for (const auto& [provider, limits] : limitsAt(kNow + Seconds{t})) {
        const auto some = LimitReading::of(provider, limits);
        batch.insert(batch.end(), some.begin(), some.end());
      }
      if (batch.size() > 20'000) {
        store->addReadings(batch);
        batch.clear();
      }
    }
    store->addReadings(batch);
  }
  ~YearOfReadings() {
    store.reset();
    std::filesystem::remove_all(dir);
  }
};

YearOfReadings& year() {
  static YearOfReadings readings;
  return readings;
}

// One fetch's worth: the new figures stored with their readings, then every forecast.
void limitForecasts(benchmark::State& state) {
  UsageStore& store = *year().store;
  size_t forecasts = 0;
  double t = 0;
  for (auto _ : state) {
    const auto limits = limitsAt(kNow + Seconds{t += kStep});
    for (const auto& [provider, record] : limits) store.setLimits(record, provider);
    const auto all = LimitOutlook::forecasts(store, limits, kNow + Seconds{t});
    forecasts = all.at(ProviderID::claude).size() + all.at(ProviderID::codex).size();
    benchmark::DoNotOptimize(forecasts);
  }
  if (forecasts != 5) state.SkipWithError("a window without a forecast");
  state.counters["readings"] = static_cast<double>(store.readings({}).size());
}

// The reference: SQLite alone reading a week of one window's readings.
void limitReadingsBare(benchmark::State& state) {
  const std::string path = (year().dir / "usage.db").string();
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db,
                     "SELECT read_at, used FROM limit_readings WHERE provider = 'claude' AND "
                     "window_id = 'weekly' AND read_at >= ?1 ORDER BY read_at",
                     -1, &statement, nullptr);
  int64_t rows = 0;
  for (auto _ : state) {
    sqlite3_bind_double(statement, 1, referenceSeconds(kNow) - kWeek);
    rows = 0;
    while (sqlite3_step(statement) == SQLITE_ROW) rows += sqlite3_column_double(statement, 1) > 0;
    sqlite3_reset(statement);
    benchmark::DoNotOptimize(rows);
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  state.counters["rows"] = static_cast<double>(rows);
}

BENCHMARK(limitForecasts)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(limitReadingsBare)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace
}  // namespace brimlog
