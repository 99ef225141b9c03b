// Three machines (three homes, three ledgers) share into one PostgreSQL database with the real
// `brimlog` command, one share killed with SIGKILL half-way; the shared reports then equal the
// sum of the three machines' own.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

#include "platform/Json.hpp"
#include "share/PgConnection.hpp"
#include "support/PostgresCluster.hpp"
#include "support/RunningProgram.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing::RunningProgram;

class ShareCommandTest : public testing::PostgresTest {
 protected:
  std::vector<std::string> command(int machine, std::vector<std::string> arguments) {
    const std::filesystem::path folder = dir() / fmt::format("m{}", machine);
    arguments.insert(arguments.begin(), BRIMLOG_BINARY);
    arguments.insert(arguments.end(),
                     {"--home", (folder / "home").string(), "--db", (folder / "usage.db").string(),
                      "--shared-dir", (folder / "state").string(), "--now", "2026-11-20T12:00:00Z",
                      "--tz", "Europe/Berlin"});
    return arguments;
  }

  std::string succeeded(int machine, std::vector<std::string> arguments) {
    const RunningProgram::Result run = RunningProgram::run(command(machine, std::move(arguments)));
    EXPECT_EQ(run.exitStatus, 0) << run.output;
    return run.output;
  }

  // The figures of a report that totals add up across machines.
  static std::vector<double> totals(const std::string& report) {
    const Json json = Json::parse(report);
    std::vector<double> figures;
    for (const auto& [kind, count] : json["tokens"].items()) figures.push_back(count.get<double>());
    figures.push_back(json["sessions"].get<double>());
    figures.push_back(json["totalCostUSD"].get<double>());
    return figures;
  }

  // Counts are equal; costs, printed to a millionth of a dollar each, within the rounding.
  static void expectSameTotals(const std::vector<double>& a, const std::vector<double>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i + 1 < a.size(); ++i) EXPECT_EQ(a[i], b[i]) << i;
    EXPECT_NEAR(a.back(), b.back(), 1e-5);
  }
};

TEST_F(ShareCommandTest, ThreeMachinesAddUpAfterAKilledShareAndAfterSharingTwice) {
  // Forty days of replies on each machine, two sessions a day, the same session ids everywhere.
  for (int machine = 1; machine <= 3; ++machine) {
    std::string log;
    for (int day = 1; day <= 40; ++day) {
      for (int n = 0; n < 4; ++n) {
        log += fmt::format(
            R"({{"type":"assistant","sessionId":"s{}","timestamp":"2026-{}-{:02}T{:02}:30:00Z",)"
            R"("message":{{"id":"m{}-{}-{}","model":"claude-sonnet-4-5","usage":{{)"
            R"("input_tokens":{},"cache_read_input_tokens":{},"output_tokens":{}}}}}}})"
            "\n",
            n % 2, day <= 31 ? 10 : 11, day <= 31 ? day : day - 31, 6 * n, machine, day, n,
            1000 * machine + n, 50000 * day, 700 * n + day);
      }
    }
    write(fmt::format("m{}/home/.claude/projects/p/s.jsonl", machine), log);
  }
  const std::vector<std::string> daily = {"report", "--json", "--days", "60"};
  std::vector<double> sum;
  for (int machine = 1; machine <= 3; ++machine) {
    std::vector<std::string> arguments = daily;
    const std::vector<double> own = totals(succeeded(machine, arguments));
    if (sum.empty()) sum.assign(own.size(), 0);
    for (size_t i = 0; i < own.size(); ++i) sum[i] += own[i];
  }
  const auto shared = [&] {
    std::vector<std::string> arguments = daily;
    arguments.insert(arguments.end(), {"--from", url});
    return totals(succeeded(1, arguments));
  };
  const auto share = [&](int machine) {
    return succeeded(machine, {"share", "--to", url, "--machine", fmt::format("m{}", machine)});
  };

  share(1);
  // Machine 2's share stops at its last batch: the test holds the key of its last day, so the
  // earlier batches are committed and the last one waits, until the share is killed.
  PgConnection holder{url};
  holder.exec("INSERT INTO brimlog.machines VALUES('m2', '', 0)");
  holder.exec("BEGIN");
  holder.query(
      "INSERT INTO brimlog.shared_days VALUES('m2', 'usage', $1, 0)",
      {std::to_string(
          (std::chrono::sys_days{std::chrono::year{2026} / 11 / 9}).time_since_epoch().count())});
  RunningProgram killed{command(2, {"share", "--to", url, "--machine", "m2"})};
  PgConnection watcher{url};
  for (int i = 0; i < 600; ++i) {
    if (watcher.query("SELECT count(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock'")
            .integer(0, 0) > 0) {
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ASSERT_EQ(::kill(killed.pid(), SIGKILL), 0);
  killed.finish(std::chrono::seconds(10));
  holder.exec("ROLLBACK");
  const int64_t halfWay =
      watcher.query("SELECT count(*) FROM brimlog.shared_days WHERE machine = 'm2'").integer(0, 0);
  EXPECT_GT(halfWay, 0);
  EXPECT_LT(halfWay, 40);

  share(2);
  // Machine 3 finds its password where libpq looks for it, not in the URL.
  const std::filesystem::path pgpass =
      write("pgpass",
            fmt::format("127.0.0.1:{}:team:brimlog:{}\n", cluster->port(), cluster->password()));
  std::filesystem::permissions(pgpass, std::filesystem::perms::owner_read);
  ::setenv("PGPASSFILE", pgpass.c_str(), 1);
  succeeded(
      3, {"share", "--to", fmt::format("postgresql://brimlog@127.0.0.1:{}/team", cluster->port()),
          "--machine", "m3"});
  ::unsetenv("PGPASSFILE");
  expectSameTotals(shared(), sum);
  for (int machine = 1; machine <= 3; ++machine) {
    EXPECT_THAT(share(machine), HasSubstr("Nothing new"));
  }
  expectSameTotals(shared(), sum);
  // Nothing secret on the way.
  EXPECT_THAT(share(1), Not(HasSubstr(cluster->password())));
}

}  // namespace
}  // namespace brimlog
