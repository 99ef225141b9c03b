// Sharing a large ledger with a PostgreSQL server: the first share of every day, a share when
// nothing changed, and a share after one new reply. Beside them, in the same run against the
// same server, the floor no code of ours can go below: one bare COPY of the same slot rows into
// a table with the same key.
//
//     brimlog_share_bench --db build/bench-data/share/usage.db

#include <fmt/format.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <iterator>

#include "share/PgConnection.hpp"
#include "share/SharedLedger.hpp"
#include "store/UsageStore.hpp"
#include "support/PostgresCluster.hpp"

namespace brimlog {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double peakMegabytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

int run(const std::string& database) {
  if (auto reason = testing::PostgresCluster::unavailable()) {
    fmt::print(stderr, "share bench: {}\n", *reason);
    return 77;
  }
  testing::PostgresCluster cluster;
  const std::string url = cluster.createDatabase("bench");
  UsageStore store{database};

  fmt::print("{:<34} {:>10} {:>12} {:>10}\n", "run", "seconds", "rows", "peak MB");
  Clock::time_point start = Clock::now();
  SharedLedger shared{url};
  ShareResult first = shared.share(store, "bench", "");
  fmt::print("{:<34} {:>10.3f} {:>12} {:>10.0f}\n", "first share (every day)", secondsSince(start),
             first.usageRows, peakMegabytes());
  for (int i = 0; i < 3; ++i) {
    start = Clock::now();
    SharedLedger again{url};
    const ShareResult none = again.share(store, "bench", "");
    fmt::print("{:<34} {:>10.3f} {:>12} {:>10.0f}\n", "nothing changed (connect + share)",
               secondsSince(start), none.usageRows, peakMegabytes());
  }

  // The floor: the same rows, formatted once, in one COPY into a keyed table.
  const LedgerRows rows =
      store.ledger({dateFromUnixSeconds(0), dateFromUnixSeconds(4e9), std::nullopt, std::nullopt});
  std::string text;
  for (const LedgerSlot& slot : rows.slots) {
    const LedgerSession* session = rows.session(slot.session);
    const TokenCounts& t = slot.tokens;
    fmt::format_to(std::back_inserter(text), "bench\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\t{}\n",
                   slot.slot, session->provider.rawValue(), session->sessionID, slot.model,
                   t.uncachedInput, t.cacheRead, t.cacheWrite5m, t.cacheWrite1h, t.output,
                   t.reasoning);
  }
  PgConnection raw{url};
  raw.exec(
      "CREATE TABLE floor(machine text, slot bigint, provider text, session_id text, model text, "
      "uncached bigint, cache_read bigint, w5m bigint, w1h bigint, output bigint, "
      "reasoning bigint, PRIMARY KEY(machine, slot, provider, session_id, model))");
  start = Clock::now();
  raw.copyIn("COPY floor FROM STDIN", text);
  fmt::print("{:<34} {:>10.3f} {:>12} {:>10}\n", "floor: one bare COPY", secondsSince(start),
             rows.slots.size(), "");
  return 0;
}

}  // namespace
}  // namespace brimlog

int main(int argc, char** argv) {
  CLI::App app{"Times sharing a ledger with a throw-away PostgreSQL server"};
  std::string database;
  app.add_option("--db", database, "The ledger to share (written by brimlog sync)")->required();
  CLI11_PARSE(app, argc, argv);
  return brimlog::run(database);
}
